#include "reference/site/site_reader.h"

#include <google/protobuf/arena.h>
#include <tsl/robin_map.h>
#include <tsl/robin_set.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>

#include "reference/site/checker.h"
#include "reference/site/entries.h"
#include "reference/site/site_values.h"
#include "reference/text/printable.h"
#include "reference/text/text_file.h"
#include "site.pb.h"

namespace reference {
namespace {

constexpr TextFileKind kSiteFile = {
    "site file",
    R"(write numbers as in mtu: 1500, text as in name: "core-a", entries as in vlan { ... })"};
constexpr Range kTypes{0, std::numeric_limits<std::uint8_t>::max()};

// What a name in the file can refer to.
enum class Kind { kInterface, kVlan, kHost, kTunnel, kCircuit, kEcmp };
constexpr std::size_t kKinds = 6;
constexpr std::array<std::string_view, kKinds> kKindTexts = {
    "an interface", "a vlan", "a host", "a tunnel", "a virtual circuit", "an ecmp group"};

// What a field can refer to.
struct Role {
  // What an operator may name there, and which entry to add if it is missing.
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

// The names of a file in one name space, and the number that each refers to.
class Names {
 public:
  struct Named {
    Kind kind;
    std::uint32_t number;
  };

  void Reserve(std::size_t count) { named_.reserve(count); }

  // If several have the same name, the first one counts.
  void Add(std::string_view name, Named named) {
    if (name.empty() || !named_.emplace(name, named).second) return;
    std::vector<std::string_view>& examples = examples_[static_cast<std::size_t>(named.kind)];
    if (examples.size() <= kExamples) examples.push_back(name);
  }

  const Named* Find(std::string_view name) const {
    const auto found = named_.find(name);
    return found == named_.end() ? nullptr : &found.value();
  }

  // `lead` and the first few names that fit `role`; empty if none fits.
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

  // Keeps the hashes, so that only equal names are compared: most are not in the cache.
  tsl::robin_map<std::string_view, Named, std::hash<std::string_view>, std::equal_to<>,
                 std::allocator<std::pair<std::string_view, Named>>, true>
      named_;
  // One more than is shown, to know whether there are more.
  std::array<std::vector<std::string_view>, kKinds> examples_;
};

// The uses of values that must be unique.
template <class Value>
class Uses {
 public:
  void Reserve(std::size_t count) { uses_.reserve(count); }

  void Add(Value value, Place place) { uses_.push_back({value, place}); }

  // The first use of a value; nothing if it is not used.
  std::optional<Place> Find(Value value) {
    Sort();
    const auto use =
        std::lower_bound(uses_.begin(), uses_.end(), value,
                         [](const Use& earlier, Value later) { return earlier.value < later; });
    if (use == uses_.end() || use->value != value) return std::nullopt;
    return use->place;
  }

  // Reports every use of a value except the first. `owned` names what has such a value, and the
  // value: "destination an id".
  template <class Show>
  void Report(Checker& checker, const char* field, const char* owned, Show show) {
    if (AllDiffer()) return;
    Sort();
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

  // Much faster than to sort the uses. May return false by mistake.
  bool AllDiffer() const {
    std::vector<std::size_t> hashes;
    hashes.reserve(uses_.size());
    for (const Use& use : uses_) hashes.push_back(std::hash<Value>()(use.value));
    if (!std::is_sorted(hashes.begin(), hashes.end())) std::sort(hashes.begin(), hashes.end());
    return std::adjacent_find(hashes.begin(), hashes.end()) == hashes.end();
  }

  void Sort() {
    if (std::exchange(sorted_, true)) return;
    std::sort(uses_.begin(), uses_.end(), [](const Use& a, const Use& b) {
      return std::tie(a.value, a.place.line, a.place.column) <
             std::tie(b.value, b.place.line, b.place.column);
    });
  }

  std::vector<Use> uses_;
  bool sorted_ = false;
};

// The numbers and names of one number and name space.
class Space {
 public:
  void Reserve(std::size_t count) {
    numbers_.Reserve(count);
    names_.Reserve(count);
  }

  void Add(const Entry& entry, int number_field, Range range, int name_field) {
    if (entry.Has(number_field) && range.Contains(entry.Number(number_field))) {
      numbers_.Add(entry.Number(number_field), entry.PlaceOf(number_field));
    }
    const std::string_view name = entry.Text(name_field);
    if (name.empty()) return;
    names_.Add(name, entry.PlaceOf(name_field));
    if (name.find(' ') != std::string::npos) spaced_.push_back({name, entry.PlaceOf(name_field)});
  }

  void Report(Checker& checker, const char* number, const char* owned_number,
              const char* owned_name) {
    numbers_.Report(checker, number, owned_number,
                    [](std::int64_t value) { return std::to_string(value); });
    names_.Report(checker, "name", owned_name, [](std::string_view name) { return Quote(name); });
    ReportSpaced(checker, owned_name);
  }

 private:
  struct Spaced {
    std::string_view name;
    Place place;
  };

  // Reports names that people cannot tell apart: those that differ only in spaces.
  void ReportSpaced(Checker& checker, const char* owned) {
    std::map<std::string, Spaced> seen;
    for (const Spaced& spaced : spaced_) {
      std::string bare(spaced.name);
      bare.erase(std::remove(bare.begin(), bare.end(), ' '), bare.end());
      Spaced first = spaced;
      if (const auto place = names_.Find(bare)) {
        first = {bare, *place};
      } else {
        first = seen.emplace(bare, spaced).first->second;
      }
      if (first.name == spaced.name) continue;
      checker.Add(spaced.place, "name " + Quote(spaced.name) + " differs from " +
                                    Quote(first.name) + " at line " +
                                    std::to_string(first.place.line) +
                                    " in spaces only; give every " + owned + " of its own");
    }
  }

  Uses<std::int64_t> numbers_;
  Uses<std::string_view> names_;
  // The names with spaces.
  std::vector<Spaced> spaced_;
};

// Calls an `EntryUse` for each entry of a file. Returns nothing if that did not go on, or if the
// source cannot read the file, for which the calls mean nothing.
using EntrySource = std::function<std::optional<FileHead>(const EntryUse& use)>;

// Makes the site from a file's entries. Reads one file.
class SiteReader {
 public:
  // Returns the mistakes and warnings; nothing if the source cannot read the file.
  std::optional<std::vector<Diagnostic>> Read(const EntrySource& source) {
    EntryCounts counts{};
    const auto head = source([this, &counts](const Entry& entry) {
      ++counts.at(static_cast<std::size_t>(entry.kind()));
      CollectName(entry);
      return true;
    });
    if (!head) return std::nullopt;
    Reserve(counts);
    source([this](const Entry& entry) {
      Add(entry);
      return true;
    });
    CheckNames();
    CheckCount(*head);
    return checker_.TakeFindings();
  }

  // Goes through the file once instead of twice, so it finds only names above their use. Returns
  // false if there may be mistakes or warnings, or the source cannot read the file. `counts` may be
  // estimates.
  bool ReadInOrder(const EntrySource& source, const EntryCounts& counts) {
    const std::size_t destinations =
        counts[site::SiteFile::kVlanFieldNumber] + counts[site::SiteFile::kHostFieldNumber] +
        counts[site::SiteFile::kMplsFieldNumber] + counts[site::SiteFile::kEcmpFieldNumber];
    destinations_.Reserve(destinations);
    destination_names_.Reserve(destinations);
    Reserve(counts);
    const auto head = source([this](const Entry& entry) {
      CollectName(entry);
      Add(entry);
      return !checker_.HasFindings();
    });
    if (!head) return false;
    CheckNames();
    CheckCount(*head);
    return !checker_.HasFindings();
  }

  bool HasMistakes() const { return checker_.HasMistakes(); }
  Site TakeSite() { return std::move(site_); }

 private:
  void CheckNames() {
    interfaces_.Report(checker_, "lim_id", "interface a lim_id", "interface a name");
    vrfs_.Report(checker_, "id", "vrf an id", "vrf a name");
    destinations_.Report(checker_, "id", "destination an id", "destination a name");
  }

  void CheckCount(const FileHead& head) {
    const std::size_t objects = CountObjects(site_);
    if (!head.object_count) {
      // What a failed copy leaves.
      if (objects == 0 && site_.interfaces.empty()) {
        checker_.Add({},
                     "the file has no entries; restore them, or write object_count: 0 to remove "
                     "everything");
      }
      return;
    }
    const std::int64_t count = *head.object_count;
    if (count >= 0 && static_cast<std::uint64_t>(count) == objects) return;
    checker_.Add(head.object_count_place, "object_count is " + std::to_string(count) +
                                              ", but the file has " + std::to_string(objects) +
                                              (objects == 1 ? " object" : " objects") +
                                              "; restore the missing ones or correct object_count");
  }

  void CollectName(const Entry& entry) {
    switch (entry.kind()) {
      case site::SiteFile::kInterfaceFieldNumber:
        interfaces_.Add(entry, site::Interface::kLimIdFieldNumber, kUint32,
                        site::Interface::kNameFieldNumber);
        Name<site::Interface>(interface_names_, Kind::kInterface, entry,
                              site::Interface::kLimIdFieldNumber);
        break;
      case site::SiteFile::kVrfFieldNumber:
        vrfs_.Add(entry, site::Vrf::kIdFieldNumber, kIds, site::Vrf::kNameFieldNumber);
        vrf_numbers_.insert(entry.Number(site::Vrf::kVrfIdFieldNumber));
        break;
      case site::SiteFile::kVlanFieldNumber:
        CollectDestination<site::Vlan>(Kind::kVlan, entry);
        break;
      case site::SiteFile::kHostFieldNumber:
        CollectDestination<site::Host>(Kind::kHost, entry);
        break;
      case site::SiteFile::kMplsFieldNumber:
        CollectDestination<site::Mpls>(
            entry.Has(site::Mpls::kVcLabelFieldNumber) ? Kind::kCircuit : Kind::kTunnel, entry);
        break;
      default:
        CollectDestination<site::Ecmp>(Kind::kEcmp, entry);
    }
  }

  template <class Schema>
  void CollectDestination(Kind kind, const Entry& entry) {
    destinations_.Add(entry, Schema::kIdFieldNumber, kIds, Schema::kNameFieldNumber);
    Name<Schema>(destination_names_, kind, entry, Schema::kIdFieldNumber);
  }

  template <class Schema>
  static void Name(Names& names, Kind kind, const Entry& entry, int number) {
    names.Add(entry.Text(Schema::kNameFieldNumber),
              {kind, static_cast<std::uint32_t>(entry.Number(number))});
  }

  void Reserve(const EntryCounts& counts) {
    site_.interfaces.reserve(counts[site::SiteFile::kInterfaceFieldNumber]);
    site_.vrfs.reserve(counts[site::SiteFile::kVrfFieldNumber]);
    site_.vlans.reserve(counts[site::SiteFile::kVlanFieldNumber]);
    site_.hosts.reserve(counts[site::SiteFile::kHostFieldNumber]);
    site_.mpls.reserve(counts[site::SiteFile::kMplsFieldNumber]);
    site_.ecmps.reserve(counts[site::SiteFile::kEcmpFieldNumber]);
  }

  void Add(const Entry& entry) {
    switch (entry.kind()) {
      case site::SiteFile::kInterfaceFieldNumber:
        site_.interfaces.push_back(Interface(entry));
        break;
      case site::SiteFile::kVrfFieldNumber:
        site_.vrfs.push_back(Vrf(entry));
        break;
      case site::SiteFile::kVlanFieldNumber:
        site_.vlans.push_back(Vlan(entry));
        break;
      case site::SiteFile::kHostFieldNumber:
        site_.hosts.push_back(Host(entry));
        break;
      case site::SiteFile::kMplsFieldNumber:
        site_.mpls.push_back(Mpls(entry));
        break;
      default:
        site_.ecmps.push_back(Ecmp(entry));
    }
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
    vlan.vrf = VrfNumber(entry, Vlan::kVrfFieldNumber);
    vlan.mtu = checker_.Number(entry, Vlan::kMtuFieldNumber);
    vlan.capabilities = checker_.Words(entry, Vlan::kCapabilityFieldNumber, kVlanCapabilityWords);
    vlan.list_values = checker_.Texts(entry, Vlan::kListValueFieldNumber);
    return vlan;
  }

  SiteHost Host(const Entry& entry) {
    using site::Host;
    auto host = OnInterface<Host, SiteHost>(entry);
    host.mac = checker_.NextHopMac(entry, Host::kMacFieldNumber);
    host.ip_address = checker_.IpAddress(entry, Host::kIpFieldNumber);
    host.vrf = VrfNumber(entry, Host::kVrfFieldNumber);
    host.vlan = OptionalReference(kVlanRole, entry, Host::kVlanFieldNumber);
    host.flags = checker_.Words(entry, Host::kFlagFieldNumber, kFlagWords);
    return host;
  }

  SiteMpls Mpls(const Entry& entry) {
    using site::Mpls;
    auto mpls = OnInterface<Mpls, SiteMpls>(entry);
    mpls.mac = checker_.NextHopMac(entry, Mpls::kMacFieldNumber);
    mpls.label = checker_.Number(entry, Mpls::kLabelFieldNumber, kLabels);
    mpls.vc_label = checker_.Number(entry, Mpls::kVcLabelFieldNumber, kLabels);
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
    ecmp.members.reserve(static_cast<std::size_t>(entry.Count(field)));
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

  // The HAL accepts unknown VRF numbers, so such a number is not a mistake.
  std::optional<std::uint32_t> VrfNumber(const Entry& entry, int field) {
    const auto number = checker_.Number(entry, field);
    if (number && vrf_numbers_.count(*number) == 0) {
      checker_.Warn(entry.PlaceOf(field), "no vrf has vrf_id " + std::to_string(*number) +
                                              "; add vrf { vrf_id: " + std::to_string(*number) +
                                              " ... } or correct " + entry.FieldName(field));
    }
    return number;
  }

  // A neighbour that the site does not have is not a mistake.
  std::uint32_t Neighbor(const Entry& entry) {
    const int field = site::Mpls::kNeighborFieldNumber;
    if (!entry.Has(field)) return 0;
    if (destination_names_.Find(entry.Text(field)) != nullptr) {
      return Reference(destination_names_, kHostRole, entry, field);
    }
    checker_.Warn(entry.PlaceOf(field),
                  "no host has the name " + Quote(entry.Text(field)) + ", so " + entry.Describe() +
                      " is inactive; add host { name: " + Quote(entry.Text(field)) +
                      " ... } or correct " + entry.FieldName(field));
    return 0;
  }

  std::uint32_t OptionalReference(const Role& role, const Entry& entry, int field) {
    return entry.Has(field) ? Reference(destination_names_, role, entry, field) : 0;
  }

  std::uint32_t Reference(const Names& names, const Role& role, const Entry& entry, int field) {
    return Resolve(names, role, entry, field, 0, entry.Text(field));
  }

  // The number that a name in a field refers to.
  std::uint32_t Resolve(const Names& names, const Role& role, const Entry& entry, int field,
                        int index, std::string_view name) {
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

  Checker checker_;
  Site site_;
  Space interfaces_;
  Space vrfs_;
  Space destinations_;
  tsl::robin_set<std::int64_t> vrf_numbers_;
  Names interface_names_;
  Names destination_names_;
};

// The result of a reading.
struct Reading {
  std::vector<Diagnostic> findings;
  // Nothing if there are mistakes.
  std::optional<Site> site;
};

std::optional<Reading> ReadEntries(const EntrySource& source) {
  SiteReader reader;
  auto findings = reader.Read(source);
  if (!findings) return std::nullopt;
  Reading reading{*std::move(findings), std::nullopt};
  if (!reader.HasMistakes()) reading.site = reader.TakeSite();
  return reading;
}

std::optional<Site> ReadInOrder(const EntrySource& source, std::string_view text) {
  SiteReader reader;
  if (!reader.ReadInOrder(source, EstimateEntries(text))) return std::nullopt;
  return reader.TakeSite();
}

// Parses and reads; `places` may be null.
Reading ReadText(const std::string& text, FieldPlaces* places) {
  google::protobuf::Arena arena;
  auto* const file = google::protobuf::Arena::CreateMessage<site::SiteFile>(&arena);
  std::vector<Diagnostic> syntax_errors = ParseTextFile(text, kSiteFile, file, places);
  if (!syntax_errors.empty()) return {std::move(syntax_errors), std::nullopt};
  return *ReadEntries(
      [file, places](const EntryUse& use) { return ForEachEntry(*file, places, use); });
}

// Reads in the fastest way that can read the text. The findings have no places.
Reading ReadWithoutPlaces(const std::string& text) {
  const EntrySource plain = [&text](const EntryUse& use) { return ForEachPlainEntry(text, use); };
  if (auto site = ReadInOrder(plain, text)) return {{}, *std::move(site)};
  auto reading = ReadEntries(plain);
  return reading ? *std::move(reading) : ReadText(text, nullptr);
}

// The findings, with their places. The places take several times the memory and time of everything
// else, and only findings need them.
std::vector<Diagnostic> FindPlaces(const std::string& text) {
  FieldPlaces places;
  return ReadText(text, &places).findings;
}

}  // namespace

SiteOrMistakes ParseSite(const std::string& text) {
  Reading reading = ReadWithoutPlaces(text);
  if (reading.site) return *std::move(reading.site);
  return FindPlaces(text);
}

SiteOrMistakes ReadSiteFile(const std::string& path) {
  auto text = ReadTextFile(path, kSiteFile);
  if (auto* const mistake = std::get_if<Diagnostic>(&text)) return std::vector{std::move(*mistake)};
  return ParseSite(std::get<std::string>(text));
}

SiteFindings CheckSiteFile(const std::string& path) {
  auto text = ReadTextFile(path, kSiteFile);
  if (auto* const mistake = std::get_if<Diagnostic>(&text)) return {{std::move(*mistake)}, 0};
  const Reading reading = ReadWithoutPlaces(std::get<std::string>(text));
  SiteFindings findings;
  if (!reading.findings.empty()) findings.diagnostics = FindPlaces(std::get<std::string>(text));
  if (reading.site) findings.objects = CountObjects(*reading.site);
  return findings;
}

}  // namespace reference
