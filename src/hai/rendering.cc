#include "hai/rendering.h"

#include <array>
#include <cstdint>
#include <cstring>

#include "interface_ids/lim_id.h"
#include "interface_ids/mac_addr.h"

namespace dest_mng {
namespace {

constexpr std::size_t kNameSize = 64;

// Copies the stored bytes of `field`, at most `size`, to `target`.
void CopyFirstBytes(const std::string& field, void* target, std::size_t size) {
  std::memcpy(target, field.data(), field.size() < size ? field.size() : size);
}

}  // namespace

void AppendObject(std::string_view class_name, const void* object,
                  const HalL3MplsEncapsulationPrintable& printable, Text* text) {
  text->Append(class_name);
  text->Append("(this=");
  text->Append(printable.ToHexString(reinterpret_cast<unsigned long>(object), 16));
  text->Append(")");
}

void AppendLimId(const std::string& lim_id, const HalL3MplsEncapsulationPrintable& printable,
                 Text* text) {
  std::uint32_t id = 0;
  CopyFirstBytes(lim_id, &id, sizeof id);
  std::uint8_t type = 0;
  // Not initialised, so that memory checkers catch a limid_to_ifindex that does not write it.
  std::uint32_t index;
  std::array<char, kNameSize> name{};
  // The return values, which say whether the id is known, are ignored: for an unknown id, the
  // rendering shows whatever the functions left.
  limid_to_type(id, &type);
  limid_to_ifindex(id, &index);
  limid_to_intfname(id, name.data(), name.size(), 0);

  text->Append(", lim id(name=");
  text->Append({name.data(), strnlen(name.data(), name.size())});
  text->Append(", type=");
  text->Append(printable.ToHexString(type, 2));
  text->Append(", value=");
  text->Append(printable.ToHexString(index & 0xFFFFFF, 6));
  text->Append(")");
}

void AppendMacAddress(const std::string& mac, Text* text) {
  std::array<std::uint8_t, 6> bytes{};
  CopyFirstBytes(mac, bytes.data(), bytes.size());
  text->Append("mac address(");
  text->Append(nettypes::MACAddr(bytes.data()).to_string());
  text->Append(")");
}

}  // namespace dest_mng
