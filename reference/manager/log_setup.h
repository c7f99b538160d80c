#ifndef ZUSKUX_REFERENCE_MANAGER_LOG_SETUP_H_
#define ZUSKUX_REFERENCE_MANAGER_LOG_SETUP_H_

#include <string>

namespace reference {

/// Starts logging to stderr, with or without the trace lines, and opens the category that the
/// library logs on. Throws std::runtime_error. Once, before the first request.
void StartLogging(bool trace);

/// Starts logging as the file says. Throws std::runtime_error, after zlog has named the mistake on
/// stderr.
void StartConfiguredLogging(const std::string& config_path);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_MANAGER_LOG_SETUP_H_
