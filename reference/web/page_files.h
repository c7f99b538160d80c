#ifndef ZUSKUX_REFERENCE_WEB_PAGE_FILES_H_
#define ZUSKUX_REFERENCE_WEB_PAGE_FILES_H_

#include <optional>
#include <string>
#include <string_view>

#include "reference/web/http_message.h"

namespace reference {

/// The file of the folder page/ with that name, as it was when the program was built. "" is
/// index.html. Nothing if there is none.
std::optional<HttpResponse> PageFile(const std::string& name);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_WEB_PAGE_FILES_H_
