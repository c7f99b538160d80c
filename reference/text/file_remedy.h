#ifndef ZUSKUX_REFERENCE_TEXT_FILE_REMEDY_H_
#define ZUSKUX_REFERENCE_TEXT_FILE_REMEDY_H_

#include <string>

namespace reference {

/// What the operator can do when the file at `path` cannot be written because of `error`, an errno.
std::string FileRemedy(const std::string& path, int error);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_TEXT_FILE_REMEDY_H_
