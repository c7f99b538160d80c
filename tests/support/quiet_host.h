#ifndef ZUSKUX_TESTS_SUPPORT_QUIET_HOST_H_
#define ZUSKUX_TESTS_SUPPORT_QUIET_HOST_H_

namespace testing_support {

// A host around the library that allocates nothing, so that every allocation is the library's own:
// HAL client, log sink and handlers that only count their calls, and throw where they are told to.

/// What the host throws.
struct HostFailure {};

/// The calls of the library so far.
struct HostCalls {
  int log_lines = 0;
  int requests = 0;
  int notifications = 0;
};

inline bool operator==(const HostCalls& a, const HostCalls& b) {
  return a.log_lines == b.log_lines && a.requests == b.requests &&
         a.notifications == b.notifications;
}

/// Registers the quiet HAL client, with traces on and no calls so far.
void StartQuietHost();

void SetQuietTrace(bool on);

/// Forgets the calls so far.
void ForgetHostCalls();
const HostCalls& CallsOfHost();

/// Makes the `n`-th call from now throw `HostFailure`: 1 is the next one, 0 stops that.
void FailHostCall(int n);

}  // namespace testing_support

#endif  // ZUSKUX_TESTS_SUPPORT_QUIET_HOST_H_
