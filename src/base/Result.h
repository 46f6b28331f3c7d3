// Result<T>: a value or an error, returned across module boundaries instead
// of throwing. The caller turns the error into a French message or a log line.
#pragma once

#include <string>
#include <utility>
#include <variant>

namespace qv {

struct Error {
    std::string message;  // French, ready to show to the user
};

template <class T>
class [[nodiscard]] Result {
public:
    Result(T value) : v_(std::move(value)) {}
    Result(Error error) : v_(std::move(error)) {}

    bool ok() const { return v_.index() == 0; }
    explicit operator bool() const { return ok(); }

    T& value() & { return std::get<0>(v_); }
    const T& value() const& { return std::get<0>(v_); }
    T&& value() && { return std::get<0>(std::move(v_)); }
    T* operator->() { return &value(); }
    const T* operator->() const { return &value(); }
    T& operator*() & { return value(); }
    const T& operator*() const& { return value(); }

    const Error& error() const { return std::get<1>(v_); }

private:
    std::variant<T, Error> v_;
};

// For operations that produce nothing but can fail.
struct Ok {};
using Status = Result<Ok>;

}  // namespace qv
