#include "reference/web/page_files.h"

#include <array>
#include <utility>

#include "page_contents.h"

namespace reference {
namespace {

constexpr std::array<std::pair<std::string_view, std::string_view>, 6> kTypes = {
    {{".html", "text/html; charset=utf-8"},
     {".css", "text/css; charset=utf-8"},
     {".js", "text/javascript; charset=utf-8"},
     {".svg", "image/svg+xml"},
     {".png", "image/png"},
     {".ico", "image/x-icon"}}};

std::string TypeOf(std::string_view name) {
  const auto dot = name.rfind('.');
  const std::string_view extension = dot == std::string_view::npos ? "" : name.substr(dot);
  for (const auto& [known, type] : kTypes) {
    if (known == extension) return std::string(type);
  }
  return "application/octet-stream";
}

}  // namespace

std::optional<HttpResponse> PageFile(const std::string& name) {
  std::string_view wanted = name;
  if (wanted.empty()) wanted = "index.html";
  for (const auto& [file, content] : kPageContents) {
    if (file == wanted) return HttpResponse{200, TypeOf(file), std::string(content)};
  }
  return std::nullopt;
}

}  // namespace reference
