#ifndef ZUSKUX_REFERENCE_MANAGER_PROGRAM_CONTROL_CLIENT_H_
#define ZUSKUX_REFERENCE_MANAGER_PROGRAM_CONTROL_CLIENT_H_

#include <functional>
#include <nlohmann/json_fwd.hpp>
#include <string>

namespace reference {

/// Sends a request to the manager that listens on `path`. Calls `use`, unless it is empty, with
/// each line of the answer but the last, and returns the last: it has "exit_status" and, if the
/// request failed, "error". Throws `std::runtime_error`, with a text for the operator, if there is
/// no manager, its answer ends early or, unless the request `follows` what happens, it is silent
/// for 10 seconds.
nlohmann::ordered_json AskManager(
    const std::string& path, const nlohmann::ordered_json& request,
    const std::function<void(const nlohmann::ordered_json& line)>& use = nullptr,
    bool follows = false);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_MANAGER_PROGRAM_CONTROL_CLIENT_H_
