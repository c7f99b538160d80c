#ifndef ZUSKUX_EXPORT_H_
#define ZUSKUX_EXPORT_H_

/// Marks what the library exports and what it expects the host program to define. Everything else
/// is hidden.
#define ZUSKUX_EXPORT __attribute__((visibility("default")))

#endif  // ZUSKUX_EXPORT_H_
