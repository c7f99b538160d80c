#include "reference/site/site_reader.h"

#include <google/protobuf/arena.h>
#include <google/protobuf/io/tokenizer.h>
#include <google/protobuf/io/zero_copy_stream_impl_lite.h>
#include <google/protobuf/text_format.h>

#include <algorithm>
#include <array>
#include <boost/algorithm/string/case_conv.hpp>
#include <boost/algorithm/string/classification.hpp>
#include <boost/algorithm/string/split.hpp>
#include <boost/algorithm/string/trim.hpp>
#include <cerrno>
#include <cstdio>
#include <initializer_list>
#include <limits>
#include <memory>
#include <optional>
#include <string_view>
#include <system_error>
#include <tuple>
#include <unordered_map>
#include <utility>

#include "reference/site/checker.h"
#include "reference/site/site_values.h"
#include "reference/text/printable.h"
#include "site.pb.h"

namespace reference {
namespace {

using google::protobuf::Descriptor;
using google::protobuf::TextFormat;
using google::protobuf::io::ColumnNumber;
using google::protobuf::io::ErrorCollector;
using google::protobuf::io::Tokenizer;
using ReadResult = std::variant<Site, std::vector<SiteError>>;

constexpr Range kTypes{0, std::numeric_limits<std::uint8_t>::max()};

// What a name of the file can stand for.
enum class Kind { kInterface, kVlan, kHost, kTunnel, kCircuit, kEcmp };
constexpr std::size_t kKinds = 6;
constexpr std::array<std::string_view, kKinds> kKindTexts = {
    "an interface", "a vlan", "a host", "a tunnel", "a virtual circuit", "an ecmp group"};

// What a field can refer to.
struct Role {
  // What an operator may name there, and which entry makes a missing one.
  std::string_view wanted;
  std::string_view entry;
  std::initializer_list<Kind> kinds;
};

const Role kInterfaceRole{"an interface", "an interface", {Kind::kInterface}};
const Role kVlanRole{"a vlan", "a vlan", {Kind::kVlan}};
const Role kTunnelRole{"a tunnel", "an mpls", {Kind::kTunnel}};
const Role kHostRole{"a host", "a host", {Kind::kHost}};
const Role kMemberRole{"a vlan, host or mpls",
                       "a vlan, host or mpls",
                       {Kind::kVlan, Kind::kHost, Kind::kTunnel, Kind::kCircuit}};

// The names of a file that share a name space, and the number that each stands for.
class Names {
 public:
  struct Named {
    Kind kind;
    std::uint32_t number;
  };

  // The first of several of one name counts.
  void Add(std::string_view name, Named named) {
    if (name.empty() || !named_.emplace(name, named).second) return;
    std::vector<std::string_view>& examples = examples_[static_cast<std::size_t>(named.kind)];
    if (examples.size() <= kExamples) examples.push_back(name);
  }

  const Named* Find(std::string_view name) const {
    const auto found = named_.find(name);
    return found == named_.end() ? nullptr : &found->second;
  }

  // `lead` and the first few names that fit `role`; nothing if none fits.
  std::string Examples(const char* lead, const Role& role) const {
    std::vector<std::string_view> names;
    for (const Kind kind : role.kinds) {
      const std::vector<std::string_view>& more = examples_[static_cast<std::size_t>(kind)];
      names.insert(names.end(), more.begin(), more.end());
    }
    if (names.empty()) return {};
    if (names.size() > kExamples) {
      names.resize(kExamples);
      names.emplace_back("...");
    }
    return lead + Join(names);
  }

 private:
  static constexpr std::size_t kExamples = 5;

  std::unordered_map<std::string_view, Named> named_;
  // One more than is shown, to know that there are more.
  std::array<std::vector<std::string_view>, kKinds> examples_;
};

// The uses of values that must be unique.
template <class Value>
class Uses {
 public:
  void Add(Value value, Place place) { uses_.push_back({value, place}); }

  // Reports every use of a value but its first one. `owned` is what has such a value and that
  // value: "destination an id".
  template <class Show>
  void Report(Checker& checker, const char* field, const char* owned, Show show) {
    std::sort(uses_.begin(), uses_.end(), [](const Use& a, const Use& b) {
      return std::tie(a.value, a.place.line, a.place.column) <
             std::tie(b.value, b.place.line, b.place.column);
    });
    const Use* first = nullptr;
    for (const Use& use : uses_) {
      if (first == nullptr || first->value != use.value) {
        first = &use;
        continue;
      }
      std::string text = field;
      text.append(" ").append(show(use.value)).append(" is used twice, first at line ");
      text.append(std::to_string(first->place.line)).append("; give every ").append(owned);
      checker.Add(use.place, text.append(" of its own"));
    }
  }

 private:
  struct Use {
    Value value;
    Place place;
  };
  std::vector<Use> uses_;
};

// The numbers and names of one number and name space.
class Space {
 public:
  void Add(const Entry& entry, int number_field, Range range, int name_field) {
    if (entry.Has(number_field) && range.Contains(entry.Number(number_field))) {
      numbers_.Add(entry.Number(number_field), entry.PlaceOf(number_field));
    }
    if (!entry.Text(name_field).empty()) {
      names_.Add(entry.Text(name_field), entry.PlaceOf(name_field));
    }
  }

  void Report(Checker& checker, const char* number, const char* owned_number,
              const char* owned_name) {
    numbers_.Report(checker, number, owned_number,
                    [](std::int64_t value) { return std::to_string(value); });
    names_.Report(checker, "name", owned_name, [](std::string_view name) { return Quote(name); });
  }

 private:
  Uses<std::int64_t> numbers_;
  Uses<std::string_view> names_;
};

// Makes the site of a parsed file. `places` is null in a reading that only finds out whether the
// file has mistakes.
class SiteReader {
 public:
  SiteReader(const site::SiteFile& file, const Entry::Places* places)
      : file_(file), places_(places) {}

  ReadResult Read() {
    CollectNames();
    Site site;
    ReadAll<site::SiteFile::kInterfaceFieldNumber>(site.interfaces, &SiteReader::Interface);
    ReadAll<site::SiteFile::kVrfFieldNumber>(site.vrfs, &SiteReader::Vrf);
    ReadAll<site::SiteFile::kVlanFieldNumber>(site.vlans, &SiteReader::Vlan);
    ReadAll<site::SiteFile::kHostFieldNumber>(site.hosts, &SiteReader::Host);
    ReadAll<site::SiteFile::kMplsFieldNumber>(site.mpls, &SiteReader::Mpls);
    ReadAll<site::SiteFile::kEcmpFieldNumber>(site.ecmps, &SiteReader::Ecmp);
    if (checker_.HasErrors()) return checker_.TakeErrors();
    return site;
  }

 private:
  template <class Function>
  void ForEach(int kind, Function function) const {
    const auto* field = site::SiteFile::descriptor()->FindFieldByNumber(kind);
    const int count = site::SiteFile::GetReflection()->FieldSize(file_, field);
    for (int i = 0; i < count; ++i) function(Entry(file_, places_, *field, i));
  }

  template <int kind, class Object>
  void ReadAll(std::vector<Object>& objects, Object (SiteReader::*read)(const Entry&)) {
    ForEach(kind, [&](const Entry& entry) { objects.push_back((this->*read)(entry)); });
  }

  void CollectNames() {
    Space interfaces;
    ForEach(site::SiteFile::kInterfaceFieldNumber, [&](const Entry& entry) {
      using site::Interface;
      interfaces.Add(entry, Interface::kLimIdFieldNumber, kUint32, Interface::kNameFieldNumber);
      Name<Interface>(interface_names_, Kind::kInterface, entry, Interface::kLimIdFieldNumber);
    });
    interfaces.Report(checker_, "lim_id", "interface a lim_id", "interface a name");

    Space vrfs;
    ForEach(site::SiteFile::kVrfFieldNumber, [&](const Entry& entry) {
      vrfs.Add(entry, site::Vrf::kIdFieldNumber, kIds, site::Vrf::kNameFieldNumber);
    });
    vrfs.Report(checker_, "id", "vrf an id", "vrf a name");

    Space destinations;
    CollectDestinations<site::Vlan>(destinations, site::SiteFile::kVlanFieldNumber,
                                    [](const Entry&) { return Kind::kVlan; });
    CollectDestinations<site::Host>(destinations, site::SiteFile::kHostFieldNumber,
                                    [](const Entry&) { return Kind::kHost; });
    CollectDestinations<site::Mpls>(
        destinations, site::SiteFile::kMplsFieldNumber, [](const Entry& entry) {
          return entry.Has(site::Mpls::kVcLabelFieldNumber) ? Kind::kCircuit : Kind::kTunnel;
        });
    CollectDestinations<site::Ecmp>(destinations, site::SiteFile::kEcmpFieldNumber,
                                    [](const Entry&) { return Kind::kEcmp; });
    destinations.Report(checker_, "id", "destination an id", "destination a name");
  }

  template <class Schema, class KindOf>
  void CollectDestinations(Space& space, int field, KindOf kind_of) {
    ForEach(field, [&](const Entry& entry) {
      space.Add(entry, Schema::kIdFieldNumber, kIds, Schema::kNameFieldNumber);
      Name<Schema>(destination_names_, kind_of(entry), entry, Schema::kIdFieldNumber);
    });
  }

  template <class Schema>
  static void Name(Names& names, Kind kind, const Entry& entry, int number) {
    names.Add(entry.Text(Schema::kNameFieldNumber),
              {kind, static_cast<std::uint32_t>(entry.Number(number))});
  }

  SiteInterface Interface(const Entry& entry) {
    using site::Interface;
    SiteInterface interface;
    interface.name = checker_.RequiredText(entry, Interface::kNameFieldNumber);
    interface.lim_id = checker_.RequiredNumber(entry, Interface::kLimIdFieldNumber);
    interface.type = static_cast<std::uint8_t>(
        checker_.Number(entry, Interface::kTypeFieldNumber, kTypes).value_or(0));
    interface.ifindex = checker_.Number(entry, Interface::kIfindexFieldNumber).value_or(0);
    return interface;
  }

  template <class Schema, class Object>
  Object IdAndName(const Entry& entry) {
    Object object;
    object.id = checker_.RequiredNumber(entry, Schema::kIdFieldNumber, kIds);
    object.name = checker_.RequiredText(entry, Schema::kNameFieldNumber);
    return object;
  }

  template <class Schema, class Object>
  Object OnInterface(const Entry& entry) {
    auto object = IdAndName<Schema, Object>(entry);
    const int field = Schema::kInterfaceFieldNumber;
    if (entry.Has(field)) {
      object.lim_id = Reference(interface_names_, kInterfaceRole, entry, field);
    } else {
      checker_.RequiredText(entry, field);
    }
    return object;
  }

  SiteVrf Vrf(const Entry& entry) {
    auto vrf = IdAndName<site::Vrf, SiteVrf>(entry);
    vrf.vrf_id = checker_.RequiredNumber(entry, site::Vrf::kVrfIdFieldNumber);
    return vrf;
  }

  SiteVlan Vlan(const Entry& entry) {
    using site::Vlan;
    auto vlan = OnInterface<Vlan, SiteVlan>(entry);
    vlan.source_mac = checker_.MacAddress(entry, Vlan::kSourceMacFieldNumber);
    vlan.vrf = checker_.Number(entry, Vlan::kVrfFieldNumber);
    vlan.mtu = checker_.Number(entry, Vlan::kMtuFieldNumber);
    vlan.capabilities = checker_.Words(entry, Vlan::kCapabilityFieldNumber, kVlanCapabilityWords);
    vlan.list_values = checker_.Texts(entry, Vlan::kListValueFieldNumber);
    return vlan;
  }

  SiteHost Host(const Entry& entry) {
    using site::Host;
    auto host = OnInterface<Host, SiteHost>(entry);
    host.mac = checker_.MacAddress(entry, Host::kMacFieldNumber);
    host.ip_address = checker_.IpAddress(entry, Host::kIpFieldNumber);
    host.vrf = checker_.Number(entry, Host::kVrfFieldNumber);
    host.vlan = OptionalReference(kVlanRole, entry, Host::kVlanFieldNumber);
    host.flags = checker_.Words(entry, Host::kFlagFieldNumber, kFlagWords);
    return host;
  }

  SiteMpls Mpls(const Entry& entry) {
    using site::Mpls;
    auto mpls = OnInterface<Mpls, SiteMpls>(entry);
    mpls.mac = checker_.MacAddress(entry, Mpls::kMacFieldNumber);
    mpls.label = checker_.Number(entry, Mpls::kLabelFieldNumber);
    mpls.vc_label = checker_.Number(entry, Mpls::kVcLabelFieldNumber);
    if (entry.Has(Mpls::kVcLabelFieldNumber)) {
      CheckCircuit(entry);
      mpls.tunnel = OptionalReference(kTunnelRole, entry, Mpls::kTunnelFieldNumber);
    } else {
      CheckNoCircuit(entry);
      mpls.vlan = OptionalReference(kVlanRole, entry, Mpls::kVlanFieldNumber);
    }
    mpls.neighbor = Neighbor(entry);
    mpls.pass_through_value = checker_.Number(entry, Mpls::kPassThroughValueFieldNumber);
    mpls.capabilities = checker_.Words(entry, Mpls::kCapabilityFieldNumber, kMplsCapabilityWords);
    return mpls;
  }

  SiteEcmp Ecmp(const Entry& entry) {
    auto ecmp = IdAndName<site::Ecmp, SiteEcmp>(entry);
    const int field = site::Ecmp::kMemberFieldNumber;
    for (int i = 0; i < entry.Count(field); ++i) {
      ecmp.members.push_back(
          Resolve(destination_names_, kMemberRole, entry, field, i, entry.Text(field, i)));
    }
    return ecmp;
  }

  void CheckCircuit(const Entry& entry) {
    using site::Mpls;
    if (!entry.Has(Mpls::kTunnelFieldNumber)) {
      checker_.Add(entry.PlaceOf(Mpls::kVcLabelFieldNumber),
                   entry.Describe() +
                       R"( has vc_label but no tunnel; add tunnel: "..." or remove vc_label)");
    }
    if (entry.Has(Mpls::kVlanFieldNumber)) {
      checker_.Add(entry.PlaceOf(Mpls::kVlanFieldNumber),
                   entry.Describe() + " has vc_label and vlan; remove vlan, because a virtual " +
                       "circuit rides on its tunnel, or remove vc_label");
    }
  }

  void CheckNoCircuit(const Entry& entry) {
    using site::Mpls;
    if (!entry.Has(Mpls::kTunnelFieldNumber)) return;
    checker_.Add(
        entry.PlaceOf(Mpls::kTunnelFieldNumber),
        entry.Describe() + " has tunnel but no vc_label; add vc_label: N or remove tunnel");
  }

  // A neighbour that the site does not have is no mistake.
  std::uint32_t Neighbor(const Entry& entry) {
    const int field = site::Mpls::kNeighborFieldNumber;
    if (destination_names_.Find(entry.Text(field)) == nullptr) return 0;
    return Reference(destination_names_, kHostRole, entry, field);
  }

  std::uint32_t OptionalReference(const Role& role, const Entry& entry, int field) {
    return entry.Has(field) ? Reference(destination_names_, role, entry, field) : 0;
  }

  std::uint32_t Reference(const Names& names, const Role& role, const Entry& entry, int field) {
    return Resolve(names, role, entry, field, 0, entry.Text(field));
  }

  // The number that a name in a field stands for.
  std::uint32_t Resolve(const Names& names, const Role& role, const Entry& entry, int field,
                        int index, const std::string& name) {
    const Names::Named* named = names.Find(name);
    if (named != nullptr &&
        std::find(role.kinds.begin(), role.kinds.end(), named->kind) != role.kinds.end()) {
      return named->number;
    }
    const std::string subject = entry.FieldName(field) + ' ' + Quote(name);
    std::string text;
    if (named == nullptr) {
      text = "unknown " + subject + "; add " + std::string(role.entry) + " { name: " + Quote(name) +
             " ... }" + names.Examples(" or use one of: ", role);
    } else {
      text = subject + " is " + std::string(kKindTexts[static_cast<std::size_t>(named->kind)]) +
             "; name " + std::string(role.wanted) + " instead" + names.Examples(", one of: ", role);
    }
    checker_.Add(entry.PlaceOf(field, index), std::move(text));
    return 0;
  }

  const site::SiteFile& file_;
  const Entry::Places* places_;
  Checker checker_;
  Names interface_names_;
  Names destination_names_;
};

constexpr char kSyntaxRemedy[] =
    R"(; write numbers as in mtu: 1500, text as in name: "core-a", entries as in vlan { ... })";

// "vlan has no field "mtuu"" and the fields that it has, out of the parser's complaint: Message
// type "site.Vlan" has no field named "mtuu". Nothing if it complains of something else.
std::optional<std::string> DescribeUnknownField(const std::string& complaint) {
  std::vector<std::string> parts;
  boost::algorithm::split(parts, complaint, boost::algorithm::is_any_of("\""));
  if (parts.size() != 5 || parts[2] != " has no field named ") return std::nullopt;
  const Descriptor* outermost = site::SiteFile::descriptor();
  const Descriptor* type = outermost->file()->pool()->FindMessageTypeByName(parts[1]);
  std::vector<std::string_view> fields;
  fields.reserve(static_cast<std::size_t>(type->field_count()));
  for (int i = 0; i < type->field_count(); ++i) fields.push_back(type->field(i)->name());
  return (type == outermost ? "a site file" : boost::algorithm::to_lower_copy(type->name())) +
         " has no field " + Quote(parts[3]) + "; use one of: " + Join(fields);
}

// Keeps the first error; those after it come of the parser's attempt to go on.
class SyntaxErrors : public ErrorCollector {
 public:
  explicit SyntaxErrors(const std::string& text) : text_(text) {}

  void AddError(int line, ColumnNumber column, const std::string& message) override {
    if (!first_.empty()) return;
    if (std::optional<std::string> unknown_field = DescribeUnknownField(message)) {
      const Place place = PlaceBefore(line, column);
      first_.push_back({place.line, place.column, *std::move(unknown_field)});
    } else {
      const auto is_full_stop = [](char c) { return c == '.'; };
      first_.push_back(
          {line + 1, column + 1,
           "syntax error: " + boost::algorithm::trim_right_copy_if(message, is_full_stop) +
               kSyntaxRemedy});
    }
  }

  std::vector<SiteError> Take() { return std::move(first_); }

 private:
  class NoErrors : public ErrorCollector {
    void AddError(int /*line*/, ColumnNumber /*column*/, const std::string& /*text*/) override {}
  };

  // Of the token before the one at a place counted from 0: the parser reports an unknown field when
  // it is past its name.
  Place PlaceBefore(int line, ColumnNumber column) const {
    google::protobuf::io::ArrayInputStream input(text_.data(), static_cast<int>(text_.size()));
    NoErrors no_errors;
    Tokenizer tokenizer(&input, &no_errors);
    tokenizer.set_comment_style(Tokenizer::SH_COMMENT_STYLE);
    do {
      tokenizer.Next();
    } while (std::tie(tokenizer.current().line, tokenizer.current().column) <
                 std::tie(line, column) &&
             tokenizer.current().type != Tokenizer::TYPE_END);
    return {tokenizer.previous().line + 1, tokenizer.previous().column + 1};
  }

  const std::string& text_;
  std::vector<SiteError> first_;
};

// Parses and reads; `places` may be null.
ReadResult ReadText(const std::string& text, Entry::Places* places) {
  google::protobuf::Arena arena;
  auto* file = google::protobuf::Arena::CreateMessage<site::SiteFile>(&arena);
  SyntaxErrors syntax_errors(text);
  TextFormat::Parser parser;
  parser.RecordErrorsTo(&syntax_errors);
  parser.WriteLocationsTo(places);
  if (!parser.ParseFromString(text, file)) return syntax_errors.Take();
  return SiteReader(*file, places).Read();
}

std::vector<SiteError> FileError(int error) {
  return {{0, 0,
           "cannot read the file: " + std::generic_category().message(error) +
               "; give the path of a readable site file"}};
}

}  // namespace

std::string FormatSiteError(const std::string& file, const SiteError& error) {
  std::string text = file + ':';
  for (const int number : {error.line, error.column}) {
    if (number != 0) text += std::to_string(number) + ':';
  }
  return Printable(text + ' ' + error.text);
}

std::variant<Site, std::vector<SiteError>> ParseSite(const std::string& text) {
  // The places take several times the memory and time of all the rest, and only mistakes need them.
  ReadResult site = ReadText(text, nullptr);
  if (std::holds_alternative<Site>(site)) return site;
  Entry::Places places;
  return ReadText(text, &places);
}

std::variant<Site, std::vector<SiteError>> ReadSiteFile(const std::string& path) {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "rbe"),
                                                             &std::fclose);
  if (file == nullptr) return FileError(errno);
  std::string text;
  std::array<char, 1 << 16> block;
  while (const std::size_t size = std::fread(block.data(), 1, block.size(), file.get())) {
    text.append(block.data(), size);
  }
  if (std::ferror(file.get()) != 0) return FileError(errno);
  return ParseSite(text);
}

}  // namespace reference
