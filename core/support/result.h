#pragma once

#include <string>
#include <utility>
#include <variant>

namespace velto {

// A failure that was expected and is reported, never thrown. `message` is a sentence
// written for the person using the app: it is shown to them (or to an MCP client) as is.
struct Error {
  enum class Domain {
    velto,     // one of the core library's own messages (see model/velto_error.h)
    file,      // the operating system refused a file operation
    decoding,  // a document did not have the expected form
    platform,  // any other system facility failed
  };
  Domain domain = Domain::platform;
  std::string message;

  bool operator==(const Error&) const = default;
};

// Either a value or the Error that prevented it. Absence that is not a failure is
// expressed as Result<std::optional<T>>, so "nothing there" and "could not look" differ.
template <class T>
class [[nodiscard]] Result {
 public:
  Result(T value) : state_(std::move(value)) {}
  Result(Error error) : state_(std::move(error)) {}

  bool ok() const { return state_.index() == 0; }
  explicit operator bool() const { return ok(); }

  // Preconditions: ok() for value(), !ok() for error().
  T& value() & { return std::get<0>(state_); }
  const T& value() const& { return std::get<0>(state_); }
  T&& value() && { return std::get<0>(std::move(state_)); }
  const Error& error() const { return std::get<1>(state_); }

  T& operator*() & { return value(); }
  const T& operator*() const& { return value(); }
  T* operator->() { return &value(); }
  const T* operator->() const { return &value(); }

  bool operator==(const Result&) const = default;

 private:
  std::variant<T, Error> state_;
};

template <>
class [[nodiscard]] Result<void> {
 public:
  Result() = default;
  Result(Error error) : error_(std::move(error)), ok_(false) {}

  bool ok() const { return ok_; }
  explicit operator bool() const { return ok_; }
  const Error& error() const { return error_; }

  bool operator==(const Result&) const = default;

 private:
  Error error_;
  bool ok_ = true;
};

inline Error fileError(std::string message) { return {Error::Domain::file, std::move(message)}; }
inline Error decodingError(std::string message) {
  return {Error::Domain::decoding, std::move(message)};
}
inline Error platformError(std::string message) {
  return {Error::Domain::platform, std::move(message)};
}

}  // namespace velto
