#include "reference/data_plane/linux/netlink.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/rtnetlink.h>

#include <cerrno>
#include <cstring>
#include <deque>
#include <functional>
#include <string>
#include <system_error>
#include <utility>
#include <variant>
#include <vector>

namespace reference {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// A kernel whose answers the test scripts: one list of datagrams per send. An int in a list is an
// error of the receive call.
class ScriptedSocket : public NetlinkSocket {
 public:
  using Datagram = std::variant<std::string, int>;
  using Answer = std::function<std::vector<Datagram>(const std::vector<nlmsghdr>& requests)>;

  explicit ScriptedSocket(Answer answer) : answer_(std::move(answer)) {}

  void Send(const char* data, std::size_t size) override {
    std::vector<nlmsghdr> requests;
    for (std::size_t place = 0; place < size;) {
      nlmsghdr header{};
      std::memcpy(&header, data + place, sizeof header);
      requests.push_back(header);
      place += NLMSG_ALIGN(header.nlmsg_len);
    }
    for (Datagram& datagram : answer_(requests)) datagrams_.push_back(std::move(datagram));
  }

  std::size_t Receive(char* data, std::size_t size) override {
    if (datagrams_.empty()) return 0;
    const Datagram datagram = datagrams_.front();
    datagrams_.pop_front();
    if (const int* const error = std::get_if<int>(&datagram)) {
      throw std::system_error(*error, std::generic_category(), "scripted");
    }
    const auto& bytes = std::get<std::string>(datagram);
    EXPECT_LE(bytes.size(), size);
    return bytes.copy(data, size);
  }

  int fd() const override { return -1; }

 private:
  const Answer answer_;
  std::deque<Datagram> datagrams_;
};

template <typename Value>
std::string Bytes(const Value& value) {
  std::string bytes(sizeof value, '\0');
  std::memcpy(bytes.data(), &value, sizeof value);
  return bytes;
}

std::string Message(std::uint16_t type, std::uint32_t sequence, const std::string& payload,
                    std::uint16_t flags = 0) {
  nlmsghdr header{};
  header.nlmsg_len = static_cast<std::uint32_t>(sizeof header + payload.size());
  header.nlmsg_type = type;
  header.nlmsg_flags = flags;
  header.nlmsg_seq = sequence;
  std::string bytes = Bytes(header) + payload;
  bytes.resize(NLMSG_ALIGN(bytes.size()));
  return bytes;
}

// Includes the request's header, as the kernel does; `text` is the extended acknowledgement.
std::string Error(const nlmsghdr& request, int error, const std::string& text = {}) {
  std::string payload = Bytes(-error) + Bytes(request);
  std::uint16_t flags = NLM_F_CAPPED;
  if (!text.empty()) {
    flags |= NLM_F_ACK_TLVS;
    const nlattr attribute = {static_cast<std::uint16_t>(sizeof attribute + text.size() + 1),
                              NLMSGERR_ATTR_MSG};
    payload += Bytes(attribute) + text + '\0';
  }
  return Message(NLMSG_ERROR, request.nlmsg_seq, payload, flags);
}

std::string Acknowledgement(const nlmsghdr& request) { return Error(request, 0); }

NetlinkClient Client(ScriptedSocket::Answer answer) {
  return NetlinkClient(std::make_unique<ScriptedSocket>(std::move(answer)));
}

MessageBatch Batch(std::size_t count) {
  MessageBatch batch;
  for (std::size_t index = 0; index < count; ++index) batch.Start(RTM_NEWLINK, 0);
  return batch;
}

std::vector<std::string> Texts(const std::vector<KernelError>& errors) {
  std::vector<std::string> texts;
  texts.reserve(errors.size());
  for (const KernelError& error : errors) {
    texts.push_back(std::to_string(error.message) + ' ' + std::to_string(error.error) + ' ' +
                    error.text + (error.certain ? "" : " ?"));
  }
  return texts;
}

TEST(NetlinkClientTest, AsksForAnAcknowledgementOfTheLastMessageOnly) {
  std::vector<bool> asked;
  NetlinkClient client = Client([&](const std::vector<nlmsghdr>& requests) {
    for (const nlmsghdr& request : requests) {
      asked.push_back((request.nlmsg_flags & NLM_F_ACK) != 0);
    }
    return std::vector<ScriptedSocket::Datagram>{Acknowledgement(requests.back())};
  });
  MessageBatch batch = Batch(3);
  EXPECT_THAT(client.Exchange(&batch), IsEmpty());
  EXPECT_THAT(asked, ElementsAre(false, false, true));
}

TEST(NetlinkClientTest, SendsALargeBatchInPieces) {
  std::size_t sends = 0;
  std::size_t messages = 0;
  NetlinkClient client = Client([&](const std::vector<nlmsghdr>& requests) {
    ++sends;
    messages += requests.size();
    return std::vector<ScriptedSocket::Datagram>{Error(requests.front(), EINVAL),
                                                 Acknowledgement(requests.back())};
  });
  // 16 bytes each: 4,096 fit into 64 KiB.
  MessageBatch batch = Batch(10000);
  EXPECT_THAT(
      Texts(client.Exchange(&batch)),
      ElementsAre("0 22 Invalid argument", "4096 22 Invalid argument", "8192 22 Invalid argument"));
  EXPECT_EQ(sends, 3U);
  EXPECT_EQ(messages, 10000U);
}

TEST(NetlinkClientTest, ReturnsTheKernelsErrorTexts) {
  NetlinkClient client = Client([](const std::vector<nlmsghdr>& requests) {
    return std::vector<ScriptedSocket::Datagram>{
        Error(requests[0], EINVAL, "Nexthop id does not exist"),
        Error(requests[1], ENODEV) + Error(requests[2], EOPNOTSUPP, "Unknown device type")};
  });
  MessageBatch batch = Batch(3);
  EXPECT_THAT(Texts(client.Exchange(&batch)),
              ElementsAre("0 22 Nexthop id does not exist", "1 19 No such device",
                          "2 95 Unknown device type"));
}

TEST(NetlinkClientTest, FindsTheErrorTextBehindARepeatedRequest) {
  NetlinkClient client = Client([](const std::vector<nlmsghdr>& requests) {
    nlmsghdr request = requests[0];
    const std::string body(8, 'x');
    request.nlmsg_len += static_cast<std::uint32_t>(body.size());
    const nlattr attribute = {sizeof attribute + 4, NLMSGERR_ATTR_MSG};
    const std::string payload = Bytes(-EINVAL) + Bytes(request) + body + Bytes(attribute) + "bad";
    return std::vector<ScriptedSocket::Datagram>{
        Message(NLMSG_ERROR, request.nlmsg_seq, payload + '\0', NLM_F_ACK_TLVS)};
  });
  MessageBatch batch = Batch(1);
  EXPECT_THAT(Texts(client.Exchange(&batch)), ElementsAre("0 22 bad"));
}

TEST(NetlinkClientTest, MatchesAnswersToRequests) {
  NetlinkClient client = Client([](const std::vector<nlmsghdr>& requests) {
    return std::vector<ScriptedSocket::Datagram>{
        Message(RTM_NEWLINK, requests[0].nlmsg_seq, "a"), Error(requests[1], ENODEV),
        Message(RTM_NEWLINK, requests[2].nlmsg_seq, "c"), Acknowledgement(requests[2])};
  });
  MessageBatch batch = Batch(3);
  std::vector<std::size_t> answered;
  const auto errors = client.Exchange(&batch, [&](std::size_t message, const nlmsghdr& answer) {
    EXPECT_EQ(answer.nlmsg_type, RTM_NEWLINK);
    answered.push_back(message);
  });
  EXPECT_THAT(answered, ElementsAre(0U, 2U));
  EXPECT_THAT(Texts(errors), ElementsAre("1 19 No such device"));
}

TEST(NetlinkClientTest, IgnoresAnswersToEarlierRequests) {
  NetlinkClient client = Client([](const std::vector<nlmsghdr>& requests) {
    nlmsghdr earlier = requests[0];
    --earlier.nlmsg_seq;
    return std::vector<ScriptedSocket::Datagram>{Error(earlier, EINVAL),
                                                 Acknowledgement(requests[0])};
  });
  MessageBatch batch = Batch(1);
  EXPECT_THAT(client.Exchange(&batch), IsEmpty());
}

TEST(NetlinkClientTest, LostAnswersMakeTheRestUncertain) {
  NetlinkClient client = Client([](const std::vector<nlmsghdr>& requests) {
    return std::vector<ScriptedSocket::Datagram>{ENOBUFS, Error(requests[1], EINVAL),
                                                 Acknowledgement(requests[2])};
  });
  MessageBatch batch = Batch(3);
  EXPECT_THAT(Texts(client.Exchange(&batch)),
              ElementsAre("1 22 Invalid argument",
                          "0 105 the kernel's answer is lost: No buffer space available ?",
                          "2 105 the kernel's answer is lost: No buffer space available ?"));
}

TEST(NetlinkClientTest, AMissingAcknowledgementMakesAllUncertain) {
  NetlinkClient client = Client([](const std::vector<nlmsghdr>& /*requests*/) {
    return std::vector<ScriptedSocket::Datagram>{};
  });
  MessageBatch batch = Batch(1);
  EXPECT_THAT(Texts(client.Exchange(&batch)),
              ElementsAre("0 74 the kernel's answer is lost: Bad message ?"));
}

TEST(NetlinkClientTest, AnErrorWithoutACodeIsABadMessage) {
  NetlinkClient client = Client([](const std::vector<nlmsghdr>& requests) {
    return std::vector<ScriptedSocket::Datagram>{Message(NLMSG_ERROR, requests[0].nlmsg_seq, "")};
  });
  MessageBatch batch = Batch(1);
  EXPECT_THAT(Texts(client.Exchange(&batch)), ElementsAre("0 74 Bad message"));
}

TEST(NetlinkClientTest, ASendThatFailsFailsItsPieceOnly) {
  int sends = 0;
  NetlinkClient client = Client([&](const std::vector<nlmsghdr>& requests) {
    if (++sends == 1) throw std::system_error(ENOMEM, std::generic_category(), "scripted");
    return std::vector<ScriptedSocket::Datagram>{Acknowledgement(requests.back())};
  });
  MessageBatch batch = Batch(5000);
  const std::vector<KernelError> errors = client.Exchange(&batch);
  ASSERT_EQ(errors.size(), 4096U);
  EXPECT_EQ(Texts(errors).back(), "4095 12 scripted: Cannot allocate memory");
  EXPECT_EQ(sends, 2);
}

TEST(NetlinkClientTest, OtherFailuresToReceiveAreThrown) {
  NetlinkClient client = Client([](const std::vector<nlmsghdr>& /*requests*/) {
    return std::vector<ScriptedSocket::Datagram>{EIO};
  });
  MessageBatch batch = Batch(1);
  EXPECT_THROW(client.Exchange(&batch), std::system_error);
}

// What a dump of one-letter payloads reads; "|" for each attempt.
std::string Dumped(NetlinkClient client) {
  MessageBatch batch = Batch(1);
  std::string read;
  client.Dump(
      &batch, [&] { read += '|'; },
      [&](const nlmsghdr& message) {
        const void* const start = &message;
        read += static_cast<const char*>(start)[NLMSG_HDRLEN];
      });
  return read;
}

TEST(NetlinkDumpTest, ReadsToTheEnd) {
  EXPECT_EQ(Dumped(Client([](const std::vector<nlmsghdr>& requests) {
              const std::uint32_t sequence = requests[0].nlmsg_seq;
              EXPECT_EQ(requests[0].nlmsg_flags & NLM_F_DUMP, NLM_F_DUMP);
              return std::vector<ScriptedSocket::Datagram>{
                  Message(RTM_NEWLINK, sequence, "a") + Message(RTM_NEWLINK, sequence, "b"),
                  Message(RTM_NEWLINK, sequence + 7, "x"), Message(RTM_NEWLINK, sequence, "c"),
                  Message(NLMSG_DONE, sequence, Bytes(0))};
            })),
            "|abc");
}

TEST(NetlinkDumpTest, StartsOverWhenTheListChanged) {
  int sends = 0;
  EXPECT_EQ(Dumped(Client([&](const std::vector<nlmsghdr>& requests) {
              const std::uint32_t sequence = requests[0].nlmsg_seq;
              const std::uint16_t flags = ++sends == 1 ? NLM_F_DUMP_INTR : 0;
              return std::vector<ScriptedSocket::Datagram>{
                  Message(RTM_NEWLINK, sequence, "a"), Message(RTM_NEWLINK, sequence, "b", flags),
                  Message(NLMSG_DONE, sequence, Bytes(0))};
            })),
            "|ab|ab");
}

TEST(NetlinkDumpTest, StartsOverWhenAPartIsLost) {
  int sends = 0;
  EXPECT_EQ(Dumped(Client([&](const std::vector<nlmsghdr>& requests) {
              const std::uint32_t sequence = requests[0].nlmsg_seq;
              std::vector<ScriptedSocket::Datagram> answer = {Message(RTM_NEWLINK, sequence, "a")};
              if (++sends == 1) answer.emplace_back(ENOBUFS);
              if (sends != 2) answer.emplace_back(Message(NLMSG_DONE, sequence, Bytes(0)));
              return answer;
            })),
            "|a|a|a");
}

TEST(NetlinkDumpTest, GivesUpOnAListThatKeepsChanging) {
  int sends = 0;
  try {
    Dumped(Client([&](const std::vector<nlmsghdr>& requests) {
      ++sends;
      return std::vector<ScriptedSocket::Datagram>{
          Message(NLMSG_DONE, requests[0].nlmsg_seq, Bytes(0), NLM_F_DUMP_INTR)};
    }));
    FAIL();
  } catch (const std::system_error& error) {
    EXPECT_EQ(error.code().value(), EAGAIN);
    EXPECT_THAT(error.what(), testing::HasSubstr("change faster than they can be read"));
  }
  EXPECT_EQ(sends, 20);
}

TEST(NetlinkDumpTest, ThrowsTheKernelsError) {
  for (const std::uint16_t type : {std::uint16_t{NLMSG_DONE}, std::uint16_t{NLMSG_ERROR}}) {
    try {
      Dumped(Client([type](const std::vector<nlmsghdr>& requests) {
        return std::vector<ScriptedSocket::Datagram>{
            Message(type, requests[0].nlmsg_seq, Bytes(-EOPNOTSUPP))};
      }));
      FAIL();
    } catch (const std::system_error& error) {
      EXPECT_EQ(error.code().value(), EOPNOTSUPP);
    }
  }
}

}  // namespace
}  // namespace reference
