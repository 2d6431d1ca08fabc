// The exception family: default messages, codes, copies and the catch hierarchy.
#include "kvs/exception.h"

#include <gtest/gtest.h>

#include <functional>

namespace {

template <class E>
std::string defaultMessage() {
  return E().what();
}

TEST(Exceptions, DefaultMessages) {
  EXPECT_EQ(defaultMessage<kvs::Exception>(), "");
  EXPECT_EQ(defaultMessage<kvs::SocketException>(), "SocketException");
  EXPECT_EQ(defaultMessage<kvs::ConnectionResetException>(), "ConnectionResetException");
  EXPECT_EQ(defaultMessage<kvs::UnableToConnectException>(), "UnableToConnectException");
  EXPECT_EQ(defaultMessage<kvs::UnableToResolveAddressException>(),
            "UnableToResolveAddressException");
  EXPECT_EQ(defaultMessage<kvs::PortAlreadyUsedException>(), "PortAlreadyUsedException");
  EXPECT_EQ(defaultMessage<kvs::InvalidSSLCertificateOrKeyException>(),
            "InvalidSSLCertificateOrKeyException");
  EXPECT_EQ(defaultMessage<kvs::ProtocolException>(), "");
  EXPECT_EQ(defaultMessage<kvs::InvalidServerResponseException>(), "");
  EXPECT_EQ(defaultMessage<cgp::CLIException>(), "");
  EXPECT_EQ(kvs::UnableToConnectException().getCode(), 0);
}

TEST(Exceptions, MessageAndCodeSurviveCopies) {
  const cgp::CLIException original("Unknown command", 500);
  const cgp::CLIException copy = original;
  EXPECT_EQ(copy.getMessage(), "Unknown command");
  EXPECT_EQ(copy.getCode(), 500);
  EXPECT_STREQ(copy.what(), "Unknown command");
  EXPECT_EQ(kvs::Exception(42).getCode(), 42);
  EXPECT_EQ(kvs::Exception(42).getMessage(), "");
}

template <class Catch>
bool caughtAs(const std::function<void()>& thrower) {
  try {
    thrower();
  } catch (Catch&) {
    return true;
  } catch (...) {
  }
  return false;
}

TEST(Exceptions, CatchHierarchy) {
  auto cli = [] { throw cgp::CLIException("x", 1); };
  EXPECT_TRUE(caughtAs<cgp::CLIException>(cli));
  EXPECT_TRUE(caughtAs<kvs::ProtocolException>(cli));
  EXPECT_TRUE(caughtAs<kvs::SocketException>(cli));
  EXPECT_TRUE(caughtAs<kvs::Exception>(cli));
  EXPECT_TRUE(caughtAs<std::exception>(cli));
  EXPECT_FALSE(caughtAs<kvs::InvalidLoginException>(cli));

  auto reset = [] { throw kvs::ConnectionResetException(); };
  EXPECT_TRUE(caughtAs<kvs::SocketException>(reset));
  EXPECT_FALSE(caughtAs<kvs::ProtocolException>(reset));

  auto plain = [] { throw kvs::Exception("unhandled exception request"); };
  EXPECT_FALSE(caughtAs<kvs::SocketException>(plain));
}

}  // namespace
