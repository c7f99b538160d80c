// What the HTTP server makes of requests: targets, parameters, hosts, and whole heads as a
// connection reads them.

#include "reference/web/http_message.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "reference/web/http_address.h"
#include "reference/web/http_server.h"

namespace reference {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Pair;

// The status of the error that the call throws; 200 if it throws none.
template <typename Call>
unsigned StatusOf(Call call) {
  try {
    call();
    return 200;
  } catch (const HttpError& error) {
    EXPECT_STRNE(error.what(), "");
    return error.status();
  }
}

TEST(TargetTest, ThePathIsSplitAndDecoded) {
  EXPECT_THAT(ParseTarget("/").path, IsEmpty());
  EXPECT_THAT(ParseTarget("/api/objects/vlan/10").path,
              ElementsAre("api", "objects", "vlan", "10"));
  EXPECT_THAT(ParseTarget("/a%2fb/c+d").path, ElementsAre("a/b", "c+d"));
  EXPECT_THAT(ParseTarget("/a//?x").path, ElementsAre("a", "", ""));
}

TEST(TargetTest, ParametersAreDecoded) {
  EXPECT_THAT(ParseTarget("/a?q=x%20y+z&kind=vlan%2Chost&empty=&bare&&").parameters,
              ElementsAre(Pair("bare", ""), Pair("empty", ""), Pair("kind", "vlan,host"),
                          Pair("q", "x y z")));
  EXPECT_THAT(ParseTarget("/a?q=%c3%a9").parameters, ElementsAre(Pair("q", "\xc3\xa9")));
}

struct BadTarget {
  const char* name;
  std::string target;
};

void PrintTo(const BadTarget& bad, std::ostream* out) { *out << bad.name; }

class BadTargetTest : public ::testing::TestWithParam<BadTarget> {};

TEST_P(BadTargetTest, IsABadRequest) {
  EXPECT_EQ(StatusOf([] { ParseTarget(GetParam().target); }), 400U);
}

INSTANTIATE_TEST_SUITE_P(
    All, BadTargetTest,
    ::testing::Values(BadTarget{"Empty", ""}, BadTarget{"NoSlash", "api"},
                      BadTarget{"AbsoluteForm", "http://localhost/"}, BadTarget{"Asterisk", "*"},
                      BadTarget{"PercentAtTheEnd", "/a%"}, BadTarget{"OneHexDigit", "/a%4"},
                      BadTarget{"NoHexDigit", "/a%4g"}, BadTarget{"NotUtf8", "/%ff"},
                      BadTarget{"OverlongUtf8", "/%c0%af"},
                      BadTarget{"ParameterNotUtf8", "/?q=%80"},
                      BadTarget{"ParameterTwice", "/?q=1&q=2"},
                      BadTarget{"TooManyParameters", "/?a&b&c&d&e&f&g&h&i&j&k&l&m&n&o&p&q"}),
    [](const auto& tested) { return tested.param.name; });

TEST(ParametersTest, AbsentOnesHaveTheirDefaults) {
  const HttpRequest request;
  Parameters parameters(request);
  EXPECT_EQ(parameters.Text("q", 10), "");
  EXPECT_EQ(parameters.Number("limit", 7, 1, 9), 7U);
  EXPECT_THAT(parameters.List("kind"), IsEmpty());
  parameters.End();
}

TEST(ParametersTest, LimitsAreInclusive) {
  const HttpRequest request = ParseTarget("/?q=1234567890&limit=9&before=18446744073709551615");
  Parameters parameters(request);
  EXPECT_EQ(parameters.Text("q", 10), "1234567890");
  EXPECT_EQ(parameters.Number("limit", 7, 1, 9), 9U);
  EXPECT_EQ(parameters.Number("before", 0, 0, UINT64_MAX), UINT64_MAX);
}

TEST(ParametersTest, WrongValuesAreBadRequests) {
  const auto number = [](const char* value) {
    return StatusOf([value] {
      const HttpRequest request = ParseTarget(std::string("/?limit=") + value);
      Parameters(request).Number("limit", 1, 1, 9);
    });
  };
  EXPECT_EQ(number("9"), 200U);
  for (const char* const value : {"", "0", "10", "-1", "1x", "x", "%201", "18446744073709551616"}) {
    EXPECT_EQ(number(value), 400U) << value;
  }
  const HttpRequest request = ParseTarget("/?q=12345678901");
  EXPECT_EQ(StatusOf([&] { Parameters(request).Text("q", 10); }), 400U);
}

TEST(ParametersTest, UnknownOnesAreBadRequests) {
  const HttpRequest request = ParseTarget("/?q=1&other=2");
  Parameters parameters(request);
  static_cast<void>(parameters.Text("q", 10));
  EXPECT_EQ(StatusOf([&] { parameters.End(); }), 400U);
}

TEST(JsonResponseTest, ForeignTextCanBeShownAnywhere) {
  const HttpResponse response = JsonResponse(
      {{"name", "<b>\"&\x1b[31m\n\xe2\x80\xae\xe2\x80\xac\xe2\x80\x8b\xff"}, {"list", {"\t"}}});
  EXPECT_EQ(response.status, 200U);
  EXPECT_EQ(response.type, "application/json");
  const auto json = nlohmann::ordered_json::parse(response.body);
  EXPECT_EQ(json["name"], "<b>\"&\\x1b[31m\\n\\u202e\\u202c\\u200b\\xff");
  EXPECT_EQ(json["list"][0], "\\t");
}

TEST(JsonResponseTest, AnErrorIsOneLineOfBoundedLength) {
  const HttpResponse response = ErrorResponse(404, std::string(10'000, 'x') + "\n");
  EXPECT_EQ(response.status, 404U);
  EXPECT_LT(response.body.size(), 300U);
  EXPECT_EQ(response.body.find('\n'), response.body.size() - 1);
}

struct Head {
  const char* name;
  std::string text;
  unsigned status;
};

void PrintTo(const Head& head, std::ostream* out) { *out << head.name; }

class HeadTest : public ::testing::TestWithParam<Head> {};

TEST_P(HeadTest, HasItsStatus) {
  EXPECT_EQ(StatusOf([] { ReadHttpRequest(GetParam().text, "router1"); }), GetParam().status);
}

std::string Get(const std::string& lines) { return "GET / HTTP/1.1\r\n" + lines + "\r\n"; }

INSTANTIATE_TEST_SUITE_P(
    All, HeadTest,
    ::testing::Values(
        Head{"Get", Get("Host: localhost\r\n"), 200},
        Head{"Head", "HEAD / HTTP/1.1\r\nHost: localhost\r\n\r\n", 200},
        Head{"OldVersion", "GET / HTTP/1.0\r\nHost: localhost\r\n\r\n", 200},
        Head{"EmptyBody", Get("Host: localhost\r\nContent-Length: 0\r\n"), 200},
        Head{"NoHost", Get(""), 400}, Head{"TwoHosts", Get("Host: a\r\nHost: localhost\r\n"), 400},
        Head{"OtherHost", Get("Host: example.com\r\n"), 403},
        Head{"Post", "POST / HTTP/1.1\r\nHost: localhost\r\n\r\n", 405},
        Head{"Options", "OPTIONS / HTTP/1.1\r\nHost: localhost\r\n\r\n", 405},
        Head{"UnknownMethod", "FETCH / HTTP/1.1\r\nHost: localhost\r\n\r\n", 405},
        Head{"Body", Get("Host: localhost\r\nContent-Length: 1\r\n"), 413},
        Head{"ChunkedBody", Get("Host: localhost\r\nTransfer-Encoding: chunked\r\n"), 413},
        Head{"BothLengths",
             Get("Host: localhost\r\nContent-Length: 5\r\nTransfer-Encoding: chunked\r\n"), 400},
        Head{"TwoLengths", Get("Host: localhost\r\nContent-Length: 0\r\nContent-Length: 1\r\n"),
             400},
        Head{"NotHttp", "hello\r\n\r\n", 400}, Head{"NewVersion", "GET / HTTP/2.0\r\n\r\n", 400},
        Head{"ControlCharacter", Get("Host: local\x01host\r\n"), 400},
        Head{"FoldedLine", Get("Host: localhost\r\nX: a\r\n b\r\n"), 200},
        Head{"NoColon", Get("Host localhost\r\n"), 400},
        Head{"SpaceBeforeColon", Get("Host : localhost\r\n"), 400},
        Head{"LongHead", Get("Host: localhost\r\nX: " + std::string(9000, 'x') + "\r\n"), 431},
        Head{"Incomplete", "GET / HTTP/1.1\r\nHost: localhost\r\n", 400}),
    [](const auto& tested) { return tested.param.name; });

TEST(HeadTest, ACompleteRequestIsRead) {
  const HttpRequest request = ReadHttpRequest(
      "GET /api/events?x=1 HTTP/1.1\r\nHost: Router1:80\r\nLast-Event-ID: a-5\r\n\r\n", "router1");
  EXPECT_THAT(request.path, ElementsAre("api", "events"));
  EXPECT_THAT(request.parameters, ElementsAre(Pair("x", "1")));
  EXPECT_EQ(request.last_event_id, "a-5");
}

TEST(HostTest, OnlyAddressesAndOwnNamesAreKnown) {
  for (const char* const host :
       {"127.0.0.1", "127.0.0.1:8080", "192.0.2.1:80", "[::1]", "[2001:db8::1]:8080", "localhost",
        "LocalHost:1", "router1", "ROUTER1:8080"}) {
    EXPECT_TRUE(IsOwnHost(host, "router1")) << host;
  }
  for (const char* const host :
       {"", ":80", "example.com", "router1.example.com", "localhost.example.com",
        "127.0.0.1.nip.io", "localhost.", "127.0.0.1:", "127.0.0.1:x", "127.0.0.1:99999", "[::1",
        "[::1]x", "[127.0.0.1]", "::1", "[localhost]", "0x7f.1", "2130706433", "evil@localhost"}) {
    EXPECT_FALSE(IsOwnHost(host, "router1")) << host;
  }
  EXPECT_FALSE(IsOwnHost("", ""));
}

TEST(AddressTest, LocalOnesNeedNoPermission) {
  const auto url = [](const std::string& text) { return HttpUrl(ParseHttpAddress(text, false)); };
  EXPECT_EQ(url("127.0.0.1:8080"), "http://127.0.0.1:8080/");
  EXPECT_EQ(url("127.1.2.3:0"), "http://127.1.2.3:0/");
  EXPECT_EQ(url("[::1]:65535"), "http://[::1]:65535/");
  EXPECT_EQ(url("localhost:80"), "http://127.0.0.1:80/");
  EXPECT_EQ(url("unix:/run/x.sock"), "unix:/run/x.sock");
}

TEST(AddressTest, OthersNeedPermission) {
  for (const char* const text :
       {"0.0.0.0:80", "[::]:80", "192.0.2.1:80", "[::ffff:127.0.0.1]:80"}) {
    EXPECT_THROW(ParseHttpAddress(text, false), std::runtime_error) << text;
    const HttpAddress address = ParseHttpAddress(text, true);
    EXPECT_FALSE(address.local) << text;
    EXPECT_THAT(ListeningText(address), HasSubstr("everyone who reaches this address"));
  }
}

TEST(AddressTest, WrongOnesAreRefused) {
  for (const char* const text :
       {"", "8080", ":8080", "127.0.0.1", "127.0.0.1:", "127.0.0.1:65536", "127.0.0.1:-1",
        "127.0.0.1:80x", "::1:8080", "[127.0.0.1]:80", "[::1]", "[::1:80", "example.com:80",
        "unix:", "256.0.0.1:80", "[localhost]:80"}) {
    EXPECT_THROW(ParseHttpAddress(text, true), std::runtime_error) << text;
  }
}

TEST(AddressTest, ItSaysWhoCanRead) {
  EXPECT_EQ(ListeningText(ParseHttpAddress("127.0.0.1:80", false)),
            "http: listening on http://127.0.0.1:80/; every user of this machine can read all "
            "objects with their addresses and states there, and change nothing");
  EXPECT_THAT(ListeningText(ParseHttpAddress("unix:/x", false)), HasSubstr("; only this user can"));
}

}  // namespace
}  // namespace reference
