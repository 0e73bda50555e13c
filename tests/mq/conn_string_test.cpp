// Connection strings: which pairs the client takes out, what stays for the
// router, and the hello built from it.
#include "mq/conn_string.h"

#include <gtest/gtest.h>

#include "zqsys/zqerr.h"

namespace zq::mq {
namespace {

TEST(ConnString, AcceptedStrings) {
  struct Case {
    const char* text;
    const char* appName;
    const char* host;
    std::uint16_t port;
    const char* forRouter;
  };
  const Case cases[] = {
      // The separator in front of a last PORT pair stays.
      {"APPNAME=app;PORT=5000", "app", "127.0.0.1", 5000, "APPNAME=app;"},
      {"APPNAME=a;PORT=1;HOST=h;PASSWORD=p", "a", "h", 1, "APPNAME=a;PASSWORD=p"},
      {" appname = a , port = 7 , Host = 10.0.0.1 ,password=x", "a", "10.0.0.1", 7,
       " appname = a ,password=x"},
      {"PORT=65535;\tAPPNAME=\tsvc one\t;HOST=", "svc one", "127.0.0.1", 65535,
       "\tAPPNAME=\tsvc one\t;"},
      // Only the first PORT is the client's; unknown keys and bare words stay.
      {"X=1;APPNAME=a=b;flag;PORT=2;PORT=3", "a=b", "127.0.0.1", 2, "X=1;APPNAME=a=b;flag;PORT=3"},
  };
  for (const Case& c : cases) {
    ConnString parsed;
    ASSERT_EQ(ParseConnString(c.text, parsed), 0u) << c.text;
    EXPECT_EQ(parsed.appName, c.appName) << c.text;
    EXPECT_EQ(parsed.host, c.host) << c.text;
    EXPECT_EQ(parsed.port, c.port) << c.text;
    EXPECT_EQ(parsed.forRouter, c.forRouter) << c.text;
  }
}

TEST(ConnString, RefusedStringsLeaveTheResultAlone) {
  const char* refused[] = {
      "",
      "APPNAME=a;HOST=h",
      "APPNAME=a;PORT=",
      "PORT=1",
      "APPNAME= ;PORT=1",
      "APPNAME=a;PORT=abc",
      "APPNAME=a;PORT=0",
      "APPNAME=a;PORT=65536",
      "APPNAME=a;PORT=-1",
      "APPNAME=a;PORT=1 2",
      "APPNAME;PORT=1",
  };
  for (const char* text : refused) {
    ConnString parsed;
    parsed.appName = "untouched";
    EXPECT_EQ(ParseConnString(text, parsed),
              static_cast<std::uint32_t>(ZQERR_COMMON_WRONG_ARGUMENTS))
        << text;
    EXPECT_EQ(parsed.appName, "untouched") << text;
  }
}

TEST(ConnString, HelloIsTagTextAndTwoZeroBytesUpToTheRoutersBuffer) {
  std::string hello;
  ASSERT_TRUE(BuildHello("APPNAME=a;PASSWORD=p", hello));
  EXPECT_EQ(hello, std::string("Local\0APPNAME=a;PASSWORD=p\0", 27));
  EXPECT_TRUE(BuildHello(std::string(1017, 'x'), hello));  // 1023 bytes before the last zero
  EXPECT_EQ(hello.size(), 1024u);
  EXPECT_FALSE(BuildHello(std::string(1018, 'x'), hello));
}

}  // namespace
}  // namespace zq::mq
