/// The manager, through its real client, against a strict server that breaks and mends objects at
/// random moments and tells of it at other random moments, while the site changes and connections
/// end. In the end, the manager must know each object's true state.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "reference/manager/engine/manager.h"
#include "reference/manager/views/report.h"
#include "reference/socket_client/socket_hal.h"
#include "reference/wire/object_states.h"
#include "tests/manager/sites.h"
#include "tests/manager/socket_system.h"
#include "tests/socket_client/fake_server.h"

namespace reference {
namespace {

using std::chrono::milliseconds;
using Key = std::pair<HalKind, std::uint32_t>;

constexpr std::uint32_t kVlans = 12;

/// The server, on its own thread. Knows for each object what became of the last request, and
/// whether it is broken.
class RandomServer {
 public:
  explicit RandomServer(std::uint32_t seed) : random_(seed) {}
  RandomServer(const RandomServer&) = delete;
  RandomServer& operator=(const RandomServer&) = delete;
  ~RandomServer() { Stop(); }

  std::string path() const { return server_.path(); }
  void Start() {
    thread_ = std::thread([this] { Run(); });
  }
  /// From now on, nothing breaks, and everything is answered and told.
  void CalmDown() { calm_ = true; }
  void Stop() {
    stop_ = true;
    if (thread_.joinable()) thread_.join();
  }

  /// What is true of an object: "installed", "refused" or the reason why it is broken; "" if the
  /// server does not hold it.
  std::map<Key, std::string> Truth() const {
    const std::lock_guard lock(mutex_);
    std::map<Key, std::string> truth;
    for (const auto& [key, object] : objects_) truth[key] = object.broken;
    for (const Key& key : refused_) truth[key] = "refused";
    for (auto& [key, text] : truth) {
      if (text.empty()) text = "installed";
    }
    return truth;
  }
  int told() const { return told_; }

 private:
  struct Object {
    std::string payload;
    // Why; empty if it is in order.
    std::string broken;
    bool named = false;
  };

  std::uint32_t Random(std::uint32_t values) {
    return static_cast<std::uint32_t>(random_() % values);
  }

  void Run() {
    server_.AcceptAndGreet();
    EXPECT_EQ(server_.hello().protocol_minor_version(), 4U);
    while (!stop_) {
      if (server_.HasInput(milliseconds(waiting_.empty() ? 1 : 0))) {
        waiting_.push_back(server_.NextOfAny());
        CheckOneRequestPerObject();
      }
      const std::lock_guard lock(mutex_);
      if (calm_) {
        while (!waiting_.empty()) CarryOutNext();
        while (!untold_.empty()) Tell();
        continue;
      }
      switch (Random(8)) {
        case 0:
          Break();
          break;
        case 1:
          Tell();
          break;
        case 2:
          if (Random(200) == 0) Reconnect();
          break;
        case 3:
        case 4:
          if (!waiting_.empty()) CarryOutNext();
          break;
        default:
          break;
      }
    }
  }

  void Reconnect() {
    waiting_.clear();
    untold_.clear();
    refused_.clear();
    server_.Close();
    server_.AcceptAndGreet();
  }

  static Key KeyOf(const FakeServer::Frame& request) {
    return {KindOf(static_cast<HalOperation>(request.type)), IdIn(request)};
  }

  void CheckOneRequestPerObject() {
    const FakeServer::Frame& last = waiting_.back();
    if (!IsRequest(last.type)) return;
    for (std::size_t i = 0; i + 1 < waiting_.size(); ++i) {
      if (!IsRequest(waiting_[i].type)) continue;
      EXPECT_NE(KeyOf(waiting_[i]), KeyOf(last)) << "two requests in flight";
    }
  }

  void CarryOutNext() {
    const FakeServer::Frame frame = waiting_.front();
    waiting_.pop_front();
    if (frame.type == FrameType::kHeartbeat) {
      server_.SendFrame(frame.type, frame.sequence, {});
    } else if (frame.type == FrameType::kBeginReinstall) {
      for (auto& [key, object] : objects_) object.named = false;
      reinstalling_ = true;
    } else if (frame.type == FrameType::kEndReinstall) {
      EndReinstall(frame.sequence);
    } else {
      const HalReturnCode code = Apply(frame);
      server_.Answer(frame, static_cast<std::uint32_t>(code));
      const auto object = objects_.find(KeyOf(frame));
      if (code != kHalSuccess || object == objects_.end()) return;
      // The manager takes it to be in order now.
      if (!object->second.broken.empty()) untold_.insert(object->first);
    }
  }

  HalReturnCode Apply(const FakeServer::Frame& request) {
    const Key key = KeyOf(request);
    const HalAction action = ActionOf(static_cast<HalOperation>(request.type));
    const auto object = objects_.find(key);
    if (action == HalAction::kDestroy) {
      refused_.erase(key);
      untold_.erase(key);
      return objects_.erase(key) != 0 ? kHalSuccess : kHalNotFound;
    }
    if (action == HalAction::kReplace && object == objects_.end()) return kHalNotFound;
    if (!calm_ && !reinstalling_ && key.first != HalKind::kVrf && Random(10) == 0) {
      refused_.insert(key);
      return kHalNotSupported;
    }
    refused_.erase(key);
    objects_[key].payload = request.payload;
    objects_[key].named = true;
    return kHalSuccess;
  }

  void EndReinstall(std::uint32_t sequence) {
    reinstalling_ = false;
    wire::TableSummary summary;
    std::map<HalKind, HalDigest> digests;
    for (auto object = objects_.begin(); object != objects_.end();) {
      if (object->second.named) {
        HalDigest& digest = digests[object->first.first];
        ++digest.count;
        digest.sum += EntryHash(object->first.second, object->second.payload);
        ++object;
      } else {
        untold_.erase(object->first);
        object = objects_.erase(object);
      }
    }
    for (const auto& [kind, digest] : digests) {
      wire::KindSummary* const added = summary.add_kinds();
      added->set_kind(std::string(HalKindName(kind)));
      added->set_count(digest.count);
      added->set_digest(digest.sum);
    }
    server_.SendFrame(FrameType::kInSync, sequence, summary.SerializeAsString());
  }

  // Breaks an object, changes the reason, or mends it.
  void Break() {
    if (objects_.empty()) return;
    auto object = objects_.begin();
    std::advance(object, Random(static_cast<std::uint32_t>(objects_.size())));
    object->second.broken = Random(2) == 0 ? "" : "reason " + std::to_string(Random(3));
    untold_.insert(object->first);
  }

  // Tells the state of up to three objects that the manager may not know.
  void Tell() {
    std::vector<HalObjectState> states;
    while (!untold_.empty() && states.size() < 3) {
      auto key = untold_.begin();
      std::advance(key, Random(static_cast<std::uint32_t>(untold_.size())));
      const std::string& broken = objects_.at(*key).broken;
      states.push_back(
          {key->first, key->second, broken.empty() ? kHalSuccess : kHalKernelRefused, broken});
      untold_.erase(key);
    }
    if (states.empty()) return;
    std::string frame;
    AppendObjectStates(states, &frame);
    server_.Send(frame);
    ++told_;
  }

  FakeServer server_;
  std::minstd_rand random_;
  std::thread thread_;
  std::atomic<bool> calm_ = false;
  std::atomic<bool> stop_ = false;
  std::atomic<int> told_ = 0;
  std::deque<FakeServer::Frame> waiting_;
  bool reinstalling_ = false;
  mutable std::mutex mutex_;
  std::map<Key, Object> objects_;
  // Those whose last request was refused.
  std::set<Key> refused_;
  std::set<Key> untold_;
};

class ObjectStatesTest : public testing::TestWithParam<std::uint32_t> {
 protected:
  Site RandomSite() {
    Site site;
    site.vrfs = {VrfEntry(1, 7), VrfEntry(2, 8)};
    if (random_() % 4 == 0) site.vrfs.pop_back();
    for (std::uint32_t id = 10; id < 10 + kVlans; ++id) {
      if (random_() % 5 != 0)
        site.vlans.push_back(VlanEntry(id, 1500 + static_cast<std::uint32_t>(random_() % 3)));
    }
    return site;
  }

  static std::string TextOf(const ::reference::Object& object) {
    switch (object.state()) {
      case ObjectState::kInstalled:
      case ObjectState::kSent:
        return "installed";
      case ObjectState::kFailed:
        return object.broken ? std::string(object.reason()) : "refused";
      default:
        return std::string(StandingName(StandingOf(object)));
    }
  }

  // What the manager believes of the objects of its site, by the HAL's own keys.
  static std::map<Key, std::string> Believed(const Manager& manager) {
    std::map<Key, std::string> believed;
    for (const auto& [key, object] : manager.database().objects()) {
      if (object.wanted && key.kind != HalKind::kVrf) believed[{key.kind, key.id}] = TextOf(object);
    }
    for (const auto& [key, entry] : manager.database().vrf_entries()) {
      if (entry.wanted) believed[{key.kind, key.id}] = TextOf(entry);
    }
    return believed;
  }

  void RunFor(milliseconds time) {
    io_.run_for(time);
    io_.restart();
  }

  std::minstd_rand random_{GetParam()};
  boost::asio::io_context io_;
};

INSTANTIATE_TEST_SUITE_P(Seeds, ObjectStatesTest, testing::Range(1U, 7U));

TEST_P(ObjectStatesTest, TheManagerKnowsTheTruthInTheEnd) {
  RandomServer server(GetParam());
  Manager manager(&io_, {});
  SocketHal hal(SocketSystem::OptionsFor(server.path()));
  manager.Apply(RandomSite());
  manager.Start(&hal);
  server.Start();
  const auto end = std::chrono::steady_clock::now() + milliseconds(400);
  while (std::chrono::steady_clock::now() < end) {
    RunFor(milliseconds(random_() % 4));
    manager.Apply(RandomSite());
  }
  server.CalmDown();
  const auto patience = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (std::chrono::steady_clock::now() < patience) {
    RunFor(milliseconds(5));
    if (manager.finished() && Believed(manager) == server.Truth()) break;
  }
  EXPECT_TRUE(manager.finished());
  EXPECT_EQ(Believed(manager), server.Truth());
  EXPECT_GT(server.told(), 10);
  // Before the client closes the connection.
  server.Stop();
}

}  // namespace
}  // namespace reference
