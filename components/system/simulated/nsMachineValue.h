// The values of a machine file: JSON that knows its lines and is read strictly.
#pragma once

#include <cstdint>
#include <functional>
#include <limits>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

/// What is wrong with a machine file, and where. Thrown by everything that reads values; it does
/// not leave the reader of machine files.
class nsMachineFileError : public std::runtime_error {
 public:
  nsMachineFileError(unsigned aLine, const std::string& aReason)
      : std::runtime_error(aReason), mLine(aLine) {}
  const unsigned mLine;  ///< From 1.
};

class nsMachineObject;

/// One value. Every reading method throws nsMachineFileError, with the value's line, when the value
/// is of another type or out of range.
class nsMachineValue {
 public:
  /// Parses a whole text: one JSON value, with no key twice in an object, and no comments. Relative
  /// paths in it are taken from aDirectory.
  static nsMachineValue Parse(std::string_view aText, const std::string& aDirectory);

  bool AsBoolean() const;
  const std::string& AsString() const;
  /// A number with or without a fraction.
  double AsNumber(double aMinimum, double aMaximum) const;
  template <class Int>
  Int AsInteger(Int aMinimum = std::numeric_limits<Int>::min(),
                Int aMaximum = std::numeric_limits<Int>::max()) const {
    return static_cast<Int>(IntegerBetween(aMinimum, aMaximum));
  }
  /// A text that is not empty; a relative path is taken from the file's directory. Separators at
  /// its end are dropped.
  std::string AsPath() const;
  /// One of a few names, each with what it stands for.
  template <class T>
  T AsOneOf(std::initializer_list<std::pair<std::string_view, T>> aNames) const {
    const std::string& text = AsString();
    std::string known;
    for (const auto& [name, value] : aNames) {
      if (text == name) return value;
      known += (known.empty() ? "\"" : ", \"") + std::string(name) + "\"";
    }
    Fail("\"" + text + "\" is none of " + known);
  }
  const std::vector<nsMachineValue>& AsArray() const;
  /// Hands the fields of an object to aRead; a key that aRead has not asked for is unknown, and an
  /// error.
  void AsObject(const std::function<void(nsMachineObject&)>& aRead) const;

  /// aKind and its name have been read before.
  [[noreturn]] void FailRepeated(const std::string& aKind, const std::string& aName) const {
    Fail("the " + aKind + " \"" + aName + "\" stands here a second time");
  }
  [[noreturn]] void Fail(const std::string& aReason) const {
    throw nsMachineFileError(mLine, aReason);
  }

 private:
  friend class nsMachineObject;
  friend class MachineValueBuilder;
  using Array = std::vector<nsMachineValue>;
  struct Object {
    std::vector<nsMachineValue> mMembers;
  };

  int64_t IntegerBetween(int64_t aMinimum, int64_t aMaximum) const;
  template <class T>
  const T& As(const char* aWanted) const;

  std::string mKey;  // of a member of an object, and where it stands
  unsigned mKeyLine = 1;
  unsigned mLine = 1;
  std::string mDirectory;
  std::variant<std::nullptr_t, bool, int64_t, double, std::string, Array, Object> mValue = nullptr;
};

/// The fields of an object, while it is read. The order in which they are asked for does not
/// matter.
class nsMachineObject {
 public:
  /// Null when the key is not there.
  const nsMachineValue* Optional(std::string_view aKey);
  /// A missing key is an error.
  const nsMachineValue& Required(std::string_view aKey);
  /// Something is wrong with the object as a whole.
  [[noreturn]] void Fail(const std::string& aReason) const { mValue.Fail(aReason); }

 private:
  friend class nsMachineValue;
  explicit nsMachineObject(const nsMachineValue& aValue);
  void FailOnUnknownKeys() const;

  const nsMachineValue& mValue;
  const std::vector<nsMachineValue>& mMembers;
  std::vector<std::string> mAsked;
};
