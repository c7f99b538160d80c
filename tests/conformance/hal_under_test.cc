#include "tests/conformance/hal_under_test.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <utility>
#include <vector>

#include "reference/hal/embedded_hal.h"
#include "reference/record/wrapped_message.h"
#include "reference/server/kernel_check.h"
#include "reference/socket_client/server_contents.h"
#include "reference/socket_client/socket_hal.h"
#include "tests/manager/process.h"
#include "tests/support/gate.h"

namespace reference {
namespace {

class EmbeddedUnderTest : public HalUnderTest {
 public:
  explicit EmbeddedUnderTest(const EmbeddedHalOptions& options) : hal_(options) { Start(); }

  HalConnection* connection() override { return &hal_; }
  TableEntries Contents() override { return hal_.SnapshotTables().Entries(); }

 private:
  EmbeddedHal hal_;
};

/// A process of zuskux-hal, and a client in the test's process.
class ServerUnderTest : public HalUnderTest {
 public:
  /// `options` go to zuskux-hal. If `site` is not empty, it is the text of a file that the option
  /// --interfaces names.
  explicit ServerUnderTest(std::vector<std::string> options, const std::string& site = "") {
    options.insert(options.begin(), {ZUSKUX_HAL, "--socket", socket()});
    if (!site.empty()) options.insert(options.end(), {"--interfaces", files_.Write("site", site)});
    server_.emplace(std::move(options));
    EXPECT_TRUE(server_->WaitForError("listening on ")) << server_->err();
    SocketHalOptions client;
    client.path = socket();
    hal_.emplace(client);
    Start();
  }

  ~ServerUnderTest() override {
    hal_.reset();
    server_->Signal(SIGTERM);
    EXPECT_EQ(server_->Wait(), 0) << server_->err();
  }

  HalConnection* connection() override { return &*hal_; }
  TableEntries Contents() override { return ReadServerContents(socket(), "the test").entries; }

 private:
  std::string socket() const { return files_.File("hal.sock"); }

  ScratchDirectory files_;
  std::optional<Process> server_;
  std::optional<SocketHal> hal_;
};

class LinuxUnderTest : public ServerUnderTest {
 public:
  explicit LinuxUnderTest(std::vector<std::string> options)
      : ServerUnderTest(std::move(options), "interface { name: \"eth2\" lim_id: 1 }\n") {}

  std::string Disagreement() override {
    ServerContents contents;
    contents.entries = Contents();
    std::ostringstream out;
    return PrintCheck(CompareWithKernel(contents, {{1, "eth2"}}, ""), &out) ? "" : out.str();
  }
};

}  // namespace

HalReports Answers::Reports() {
  HalReports reports;
  reports.results = this;
  reports.server_found = [this] {
    const std::lock_guard lock(mutex_);
    server_found_ = true;
    changed_.notify_all();
  };
  reports.vrf_result = [this](const HalRequest& request, HalReturnCode code) {
    Add({request.operation, code, {request.id}, std::string(ReportedReason())});
  };
  reports.reinstall_ended = [this](bool in_sync) {
    const std::lock_guard lock(mutex_);
    in_sync_ = in_sync_ && in_sync;
    ++ended_reinstalls_;
    changed_.notify_all();
  };
  return reports;
}

void Answers::OnResult(HalOperation operation, HalReturnCode code, const ResultIds& ids) {
  Add({operation, code, ids, std::string(ReportedReason())});
}

void Answers::Add(const Answer& answer) {
  const std::lock_guard lock(mutex_);
  answers_.push_back(answer);
  changed_.notify_all();
}

void Answers::Await(const char* what, const std::function<bool()>& condition,
                    std::unique_lock<std::mutex>* lock) {
  EXPECT_TRUE(changed_.wait_for(*lock, kPatience, condition)) << "no " << what;
}

Answer Answers::Next() {
  std::unique_lock lock(mutex_);
  Await(
      "answer", [this] { return !answers_.empty(); }, &lock);
  if (answers_.empty()) return {};
  Answer answer = answers_.front();
  answers_.pop_front();
  return answer;
}

void Answers::AwaitServer() {
  std::unique_lock lock(mutex_);
  Await(
      "server", [this] { return server_found_; }, &lock);
}

int Answers::ended_reinstalls() const {
  const std::lock_guard lock(mutex_);
  return ended_reinstalls_;
}

void Answers::AwaitEndOfReinstall(int before) {
  std::unique_lock lock(mutex_);
  Await(
      "end of the reinstall", [this, before] { return ended_reinstalls_ > before; }, &lock);
  EXPECT_TRUE(in_sync_);
}

void HalUnderTest::Start() {
  connection()->Start(answers_.Reports());
  answers_.AwaitServer();
}

void HalUnderTest::Submit(const HalRequest& request) {
  const WrappedMessage wrapped = WrapMessage(KindOf(request.operation), request.payload);
  ASSERT_NE(wrapped.message, nullptr) << "the payload does not decode";
  EXPECT_EQ((connection()->*TraitsOf(request.operation).request)(wrapped.message.get()),
            kHalSuccess)
      << "the connection does not accept it";
}

HalReturnCode HalUnderTest::CarryOut(const HalRequest& request) {
  Submit(request);
  const Answer answer = Await();
  EXPECT_EQ(answer.operation, request.operation);
  EXPECT_EQ(answer.ids.id, request.id);
  EXPECT_EQ(answer.ids.secondary_id, request.secondary_id);
  return answer.code;
}

void HalUnderTest::EndReinstall() {
  const int before = answers_.ended_reinstalls();
  connection()->EndReinstall();
  answers_.AwaitEndOfReinstall(before);
}

void HalUnderTest::Clear() {
  BeginReinstall();
  EndReinstall();
}

std::unique_ptr<HalUnderTest> MakeEmbeddedHal(std::size_t capacity) {
  EmbeddedHalOptions options;
  options.table_capacity = capacity;
  return std::make_unique<EmbeddedUnderTest>(options);
}

std::unique_ptr<HalUnderTest> MakeSimulatedServer(std::size_t capacity) {
  return std::make_unique<ServerUnderTest>(
      std::vector<std::string>{"--table-size", std::to_string(capacity)});
}

std::unique_ptr<HalUnderTest> MakeLinuxServer(std::size_t capacity) {
  return std::make_unique<LinuxUnderTest>(
      std::vector<std::string>{"--table-size", std::to_string(capacity), "--data-plane", "linux"});
}

HalOperation OperationOf(HalKind kind, HalAction action) {
  for (const OperationTraits& operation : kAllHalOperations) {
    if (operation.kind == kind && operation.action == action) return operation.operation;
  }
  throw std::out_of_range("no such operation");
}

}  // namespace reference
