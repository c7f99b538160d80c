// A request to the HTTP servers of the manager and of the HAL server: it is refused with a status
// and a text, or answered with JSON, a drawing or metrics that are safe to show.
//
// Input: the head of a request, or only its target, which begins with "/".

#include <algorithm>
#include <boost/asio/io_context.hpp>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <variant>

#include "reference/manager/engine/manager.h"
#include "reference/manager/web/manager_pages.h"
#include "reference/server/hal_pages.h"
#include "reference/web/http_server.h"
#include "tests/fuzz/fuzz_input.h"
#include "tests/manager/sites.h"
#include "tests/support/test_folder.h"

namespace reference {
namespace {

using fuzz::Check;

/// A HAL that never has a server.
class AbsentHal : public HalConnection {
 public:
  void Start(HalReports /*reports*/) override {}
  bool HasRoom() override { return false; }
  HalConnectionCounters counters() const override { return {}; }
  HalLatencies latencies() const override { return {}; }

 protected:
  HalReturnCode Submit(HalRequest* /*request*/) override { return kHalNoServer; }
  void SubmitBeginReinstall() override {}
  void SubmitEndReinstall() override {}
};

/// Both programs, kept across inputs.
class Programs {
 public:
  Programs() : manager_(&io_, {}) {
    Site site = SiteOfAllKinds();
    site.vlans[0].name = "<b>\"&\x1b\xe2\x80\xae\xe2\x80\xac\xff";
    for (std::uint32_t id = 1000; id < 2000; ++id) site.hosts.push_back(HostEntry(id, 10));
    manager_.Apply(site);
    HalServerOptions options;
    options.path = folder_.Path("hal.sock");
    server_ = std::make_unique<HalServer>(&io_, options);
    hal_pages_ = std::make_unique<HalPages>(server_.get(), options, InterfaceNames());
  }
  Programs(const Programs&) = delete;
  Programs& operator=(const Programs&) = delete;
  ~Programs() = default;

  HttpPages* manager_pages() { return &manager_pages_; }
  HttpPages* hal_pages() { return hal_pages_.get(); }

 private:
  const TestFolder folder_;
  boost::asio::io_context io_;
  const InterfaceNames interfaces_ = {{5, "eth1"}};
  AbsentHal hal_;
  Manager manager_;
  ManagerPages manager_pages_{{&manager_, &hal_, [] { return StatusHead(); },
                               [this]() -> const InterfaceNames& { return interfaces_; }}};
  std::unique_ptr<HalServer> server_;
  std::unique_ptr<HalPages> hal_pages_;
};

void CheckResponse(const HttpResponse& response) {
  Check(response.status == 200 || (response.status >= 400 && response.status <= 503),
        "an unknown status");
  Check(!response.type.empty() && !response.body.empty(), "an empty answer");
  Check(std::all_of(response.body.begin(), response.body.end(),
                    [](unsigned char c) { return (c >= ' ' && c != 0x7F) || c == '\n'; }),
        "a control character");
  if (response.type != "application/json") return;
  const auto json = nlohmann::json::parse(response.body);
  Check((response.status == 200) != json.contains("error"), "an error without a text");
}

HttpResponse AnswerOf(std::shared_ptr<Query> query) {
  for (;;) {
    int steps = 1;
    while (!query->Step()) Check(++steps < 100, "too many steps");
    QueryResult result = query->Finish();
    if (auto* const response = std::get_if<HttpResponse>(&result)) return *response;
    query = std::get<std::shared_ptr<Query>>(result);
  }
}

HttpResponse AnswerTo(HttpPages* pages, const HttpRequest& request) {
  try {
    HttpAnswer answer = pages->Get(request);
    if (auto* const response = std::get_if<HttpResponse>(&answer)) return *response;
    return AnswerOf(std::get<std::shared_ptr<Query>>(answer));
  } catch (const HttpError& error) {
    return ErrorResponse(error.status(), error.what());
  }
}

// Whether an answer is a stream, or starts another program.
bool IsLeftOut(const HttpRequest& request) {
  const std::string last = request.path.empty() ? "" : request.path.back();
  const auto format = request.parameters.find("format");
  return last == "events" ||
         (last == "graph" && (format == request.parameters.end() ||
                              (format->second != "json" && format->second != "dot")));
}

void Request(const std::string& text) {
  static Programs programs;
  HttpRequest request;
  try {
    request =
        !text.empty() && text.front() == '/' ? ParseTarget(text) : ReadHttpRequest(text, "router1");
  } catch (const HttpError& error) {
    CheckResponse(ErrorResponse(error.status(), error.what()));
    return;
  }
  if (IsLeftOut(request)) return;
  CheckResponse(AnswerTo(programs.manager_pages(), request));
  CheckResponse(AnswerTo(programs.hal_pages(), request));
}

}  // namespace
}  // namespace reference

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  reference::Request(std::string(input.Rest()));
  return 0;
}
