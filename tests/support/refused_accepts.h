#ifndef ZUSKUX_TESTS_SUPPORT_REFUSED_ACCEPTS_H_
#define ZUSKUX_TESTS_SUPPORT_REFUSED_ACCEPTS_H_

namespace reference {

/// While one lives, this process accepts no connection, as where it has no file descriptor left.
/// Everything else gets its descriptors. On any thread; one at a time.
class RefusedAccepts {
 public:
  RefusedAccepts();
  RefusedAccepts(const RefusedAccepts&) = delete;
  RefusedAccepts& operator=(const RefusedAccepts&) = delete;
  ~RefusedAccepts();

  /// How many there were.
  int count() const;
};

}  // namespace reference

#endif  // ZUSKUX_TESTS_SUPPORT_REFUSED_ACCEPTS_H_
