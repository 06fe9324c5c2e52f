// The framework's exceptions. Text parsers and value types raise these; wire
// data never does (received octets always yield an object).
//
// Every error carries its message; errors raised while reading one attribute
// of a value can be re-raised with that attribute's name attached, so that
// "Value('X', ** {'prefix': <bad>})" reports which attribute was bad.
#pragma once

#include <stdexcept>
#include <string>

namespace Kiv {

class Exception : public std::runtime_error {
  public:
    explicit Exception(std::string const& message) : std::runtime_error(message) {}
    // Name of the attribute being read or written when the error happened,
    // empty when not attributed.
    std::string const& attributeName() const { return attributeName_; }
    void attributeNameIs(std::string name) { attributeName_ = std::move(name); }

  private:
    std::string attributeName_;
};

// A value outside the range its type accepts ("value < min or > max not allowed").
class RangeError : public Exception {
  public:
    using Exception::Exception;
};

// A dense boolean set built from an octet with bits beyond its flags.
class DenseBoolSetRangeError : public RangeError {
  public:
    using RangeError::RangeError;
};

// A null pointer given where a mutator requires an object.
class NullArgumentError : public Exception {
  public:
    using Exception::Exception;
};

// An attempt to delete an attribute that cannot be deleted.
class NonDeletableAttributeError : public Exception {
  public:
    using Exception::Exception;
};

// Text that does not have the expected form (a missing literal, a bad number).
class ParseError : public Exception {
  public:
    using Exception::Exception;
};

// Hashing a value type that deliberately has no hash.
class UnhashableValueError : public Exception {
  public:
    using Exception::Exception;
};

// Re-raises the exception currently being handled with `attribute` attached.
// Call only from inside a catch block of Kiv::Exception.
template <class E>
[[noreturn]] void rethrowWithAttribute(E const& error, std::string const& attribute) {
    E copy(error);
    copy.attributeNameIs(attribute);
    throw copy;
}

}  // namespace Kiv
