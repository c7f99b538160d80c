#ifndef ZUSKUX_TESTS_SUPPORT_QUIET_HOST_H_
#define ZUSKUX_TESTS_SUPPORT_QUIET_HOST_H_

namespace testing_support {

// A host around the library that allocates nothing, so that every allocation is the library's own:
// HAL client, log sink and handlers only count their calls, and throw on demand.

/// What the host throws.
struct HostFailure {};

/// The library's calls so far.
struct HostCalls {
  int log_lines = 0;
  int requests = 0;
  int notifications = 0;
};

inline bool operator==(const HostCalls& a, const HostCalls& b) {
  return a.log_lines == b.log_lines && a.requests == b.requests &&
         a.notifications == b.notifications;
}

/// Registers the quiet HAL client, turns tracing on and resets the counts.
void StartQuietHost();

void SetQuietTrace(bool on);

/// Resets the counts.
void ForgetHostCalls();
const HostCalls& CallsOfHost();

/// Makes the `n`-th call from now throw `HostFailure`: 1 is the next one, 0 stops that.
void FailHostCall(int n);

}  // namespace testing_support

#endif  // ZUSKUX_TESTS_SUPPORT_QUIET_HOST_H_
