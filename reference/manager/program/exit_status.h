#ifndef ZUSKUX_REFERENCE_MANAGER_PROGRAM_EXIT_STATUS_H_
#define ZUSKUX_REFERENCE_MANAGER_PROGRAM_EXIT_STATUS_H_

namespace reference {

// How zuskux-manager ends; its man page and --help list the same. Success is EXIT_SUCCESS.

/// Something could not be read, written or reached.
inline constexpr int kExitFailed = 1;
inline constexpr int kExitUsage = 2;
/// The HAL does not hold what the site describes, or a plan has changes.
inline constexpr int kExitIncomplete = 3;
/// Another client programs the HAL.
inline constexpr int kExitOtherWriter = 4;
/// For a command: the manager has no connection to the HAL.
inline constexpr int kExitNotConnected = 4;
/// Success, except that the recording ended early.
inline constexpr int kExitNotRecorded = 5;

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_MANAGER_PROGRAM_EXIT_STATUS_H_
