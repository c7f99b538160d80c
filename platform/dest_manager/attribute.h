#ifndef ZUSKUX_PLATFORM_DEST_MANAGER_ATTRIBUTE_H_
#define ZUSKUX_PLATFORM_DEST_MANAGER_ATTRIBUTE_H_

#include <boost/variant.hpp>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace db {

/// The declared type of an attribute. The enumerators are in the order of `Attribute`'s
/// alternatives.
enum class AttributeType : std::int32_t {
  kInteger = 0,
  kString = 1,
  kCounter = 2,
  kBytes = 3,
};

/// One attribute value of the object database; a plain value.
///
/// The order of the members and of the alternatives is part of the binary interface.
class __attribute__((visibility("default"))) Attribute {
 public:
  /// The alternative of `kBytes`.
  using Bytes = std::vector<std::uint8_t>;
  /// One alternative for each declared type.
  using Value = boost::variant<int, std::string, std::uint64_t, Bytes>;

  /// An empty attribute: not present, holds the integer 0.
  Attribute() = default;

  /// A present attribute holding `initial`.
  explicit Attribute(Value initial) : value(std::move(initial)), present(true) {}

  /// A present attribute of the alternative that the argument's type selects. An unsigned 32-bit
  /// number, such as an id, becomes an integer attribute with the same bits.
  /// @{
  explicit Attribute(int integer) : Attribute(Value(integer)) {}
  explicit Attribute(std::uint32_t id) : Attribute(static_cast<int>(id)) {}
  explicit Attribute(std::uint64_t counter) : Attribute(Value(counter)) {}
  explicit Attribute(const char* text) : Attribute(Value(std::string(text))) {}
  explicit Attribute(std::string text) : Attribute(Value(std::move(text))) {}
  explicit Attribute(Bytes bytes) : Attribute(Value(std::move(bytes))) {}
  /// @}

  /// A plain value: copied and moved as a whole.
  /// @{
  Attribute(const Attribute&) = default;
  Attribute& operator=(const Attribute&) = default;
  Attribute(Attribute&&) = default;
  Attribute& operator=(Attribute&&) = default;
  /// @}
  virtual ~Attribute();

  /// The attribute's value; meaningless unless `present`.
  Value value;
  /// Whether the value has been set.
  bool present = false;
};

}  // namespace db

#endif  // ZUSKUX_PLATFORM_DEST_MANAGER_ATTRIBUTE_H_
