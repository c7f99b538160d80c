#ifndef ZUSKUX_REFERENCE_TEXT_LOCAL_TIME_H_
#define ZUSKUX_REFERENCE_TEXT_LOCAL_TIME_H_

#include <string>

namespace reference {

/// Now, as in "2024-05-17 08:15:30".
std::string LocalTime();

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_TEXT_LOCAL_TIME_H_
