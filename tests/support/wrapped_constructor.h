#ifndef ZUSKUX_TESTS_SUPPORT_WRAPPED_CONSTRUCTOR_H_
#define ZUSKUX_TESTS_SUPPORT_WRAPPED_CONSTRUCTOR_H_

namespace google::protobuf {
class Arena;
}  // namespace google::protobuf

/// Calls `OnConstructed(object)`, which the test defines, after each construction of a message by
/// another object file. `type` is the class in its mangled form. The test is linked with --wrap for
/// both of the constructor's names: g++ calls C1, clang may call C2. Calls go to Wrapped..., and
/// Real... is the constructor itself.
#define ZUSKUX_WRAP_CONSTRUCTOR(name, Class, type)                                        \
  ZUSKUX_WRAP_CONSTRUCTOR_AS(name##C1, Class, "_ZN" type "C1EPN6google8protobuf5ArenaEb") \
  ZUSKUX_WRAP_CONSTRUCTOR_AS(name##C2, Class, "_ZN" type "C2EPN6google8protobuf5ArenaEb")
#define ZUSKUX_WRAP_CONSTRUCTOR_AS(function, Class, symbol)                                 \
  void Real##function(Class*, google::protobuf::Arena*, bool) __asm__("__real_" symbol);    \
  void Wrapped##function(Class*, google::protobuf::Arena*, bool) __asm__("__wrap_" symbol); \
  void Wrapped##function(Class* self, google::protobuf::Arena* arena, bool owned) {         \
    Real##function(self, arena, owned);                                                     \
    OnConstructed(self);                                                                    \
  }

#endif  // ZUSKUX_TESTS_SUPPORT_WRAPPED_CONSTRUCTOR_H_
