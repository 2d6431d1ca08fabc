// The library's failure reports: kvs::Exception and its family, cgp::CLIException.
#pragma once

#include <exception>
#include <string>

namespace kvs {

class Exception : public std::exception {
 public:
  Exception() = default;
  explicit Exception(int code) : code_(code) {}
  explicit Exception(std::string message, int code = 0)
      : message_(std::move(message)), code_(code) {}
  Exception(const Exception&) = default;
  Exception& operator=(const Exception&) = default;
  ~Exception() override = default;

  const char* what() const noexcept override { return message_.c_str(); }
  virtual const std::string& getMessage() const { return message_; }
  virtual int getCode() const { return code_; }

 private:
  std::string message_;
  int code_ = 0;
};

// A class whose default message is its own name.
#define KVS_NAMED_EXCEPTION(Name, Base)                                                  \
  class Name : public Base {                                                             \
   public:                                                                               \
    Name() : Base(std::string(#Name)) {}                                                 \
    explicit Name(std::string message, int code = 0) : Base(std::move(message), code) {} \
    ~Name() override = default;                                                          \
  }

// A class whose message is always given by the thrower.
#define KVS_GIVEN_EXCEPTION(Name, Base)                                                  \
  class Name : public Base {                                                             \
   public:                                                                               \
    Name() = default;                                                                    \
    explicit Name(std::string message, int code = 0) : Base(std::move(message), code) {} \
    ~Name() override = default;                                                          \
  }

KVS_NAMED_EXCEPTION(SocketException, Exception);
KVS_NAMED_EXCEPTION(ConnectionResetException, SocketException);
KVS_NAMED_EXCEPTION(UnableToConnectException, SocketException);
KVS_NAMED_EXCEPTION(UnableToResolveAddressException, SocketException);
KVS_NAMED_EXCEPTION(PortAlreadyUsedException, SocketException);
KVS_NAMED_EXCEPTION(InvalidSSLCertificateOrKeyException, SocketException);

// ProtocolException's default message is empty: SocketException's own name is not its name.
class ProtocolException : public SocketException {
 public:
  ProtocolException() : SocketException(std::string()) {}
  explicit ProtocolException(std::string message, int code = 0)
      : SocketException(std::move(message), code) {}
  ~ProtocolException() override = default;
};

KVS_GIVEN_EXCEPTION(InvalidServerResponseException, ProtocolException);
KVS_GIVEN_EXCEPTION(InvalidServerPromptException, ProtocolException);
KVS_GIVEN_EXCEPTION(InvalidLoginException, ProtocolException);

}  // namespace kvs

namespace cgp {
KVS_GIVEN_EXCEPTION(CLIException, kvs::ProtocolException);
}  // namespace cgp

#undef KVS_NAMED_EXCEPTION
#undef KVS_GIVEN_EXCEPTION
