#ifndef ZUSKUX_TESTS_SUPPORT_REFUSED_ACCEPTS_H_
#define ZUSKUX_TESTS_SUPPORT_REFUSED_ACCEPTS_H_

namespace reference {

/// During its lifetime, this process accepts no connection, as if out of file descriptors. All
/// other calls still get descriptors. Affects all threads; one at a time.
class RefusedAccepts {
 public:
  RefusedAccepts();
  RefusedAccepts(const RefusedAccepts&) = delete;
  RefusedAccepts& operator=(const RefusedAccepts&) = delete;
  ~RefusedAccepts();

  /// How many accepts were refused.
  int count() const;
};

}  // namespace reference

#endif  // ZUSKUX_TESTS_SUPPORT_REFUSED_ACCEPTS_H_
