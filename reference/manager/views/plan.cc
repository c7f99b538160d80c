#include "reference/manager/views/plan.h"

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>
#include <string_view>
#include <utility>

#include "reference/hal/message_fields.h"
#include "reference/manager/engine/adapters.h"
#include "reference/manager/engine/dest_database.h"
#include "reference/manager/engine/request_queue.h"
#include "reference/text/json_text.h"
#include "reference/text/printable.h"

namespace reference {
namespace {

constexpr std::array<std::string_view, 3> kChangeNames = {"install", "replace", "remove"};

std::string_view ChangeName(PlannedChange change) {
  return kChangeNames.at(static_cast<std::size_t>(change));
}

std::size_t Count(const Plan& plan, PlannedChange change) {
  return static_cast<std::size_t>(
      std::count_if(plan.steps.begin(), plan.steps.end(),
                    [change](const PlanStep& step) { return step.change == change; }));
}

std::string DetailText(const PlanStep& step) {
  switch (step.change) {
    case PlannedChange::kInstall:
      return FieldsText(step.wanted);
    case PlannedChange::kReplace:
      return ChangesText(ChangedFields(step.present, step.wanted));
    case PlannedChange::kRemove:
      break;
  }
  return FieldsText(step.present);
}

}  // namespace

Plan MakePlan(const Site& site, const TableEntries& present) {
  DestDatabase database;
  RequestQueue queue;
  for (Object* const object : database.Replace(site).changed) queue.Add(object);

  InterfaceNames interfaces;
  for (const SiteInterface& interface : site.interfaces) {
    interfaces[interface.lim_id] = interface.name;
  }
  Plan plan;
  TableEntries left = present;
  while (!queue.empty()) {
    Object* const object = database.FindEntry(queue.front());
    queue.Remove(object);
    const HalMessage message = TranslateForHal(object->content);
    const HalKind kind = object->key.kind;
    const auto entry = left.find({kind, message.id});
    if (entry == left.end()) {
      plan.steps.push_back({PlannedChange::kInstall, kind, message.id, object->name, nullptr,
                            FieldsOf(kind, message.payload, interfaces)});
      continue;
    }
    if (entry->second == message.payload) {
      ++plan.unchanged;
    } else {
      plan.steps.push_back({PlannedChange::kReplace, kind, message.id, object->name,
                            FieldsOf(kind, entry->second, interfaces),
                            FieldsOf(kind, message.payload, interfaces)});
    }
    left.erase(entry);
  }
  for (const auto& [key, payload] : left) {
    plan.steps.push_back({PlannedChange::kRemove,
                          key.first,
                          key.second,
                          {},
                          FieldsOf(key.first, payload, interfaces),
                          nullptr});
  }
  return plan;
}

void WritePlan(const Plan& plan, std::ostream* out) {
  for (const PlanStep& step : plan.steps) {
    *out << ChangeName(step.change) << "  " << HalKindName(step.kind) << ' ' << step.id;
    if (!step.name.empty()) *out << "  " << Printable(step.name);
    *out << "\n         " << DetailText(step) << '\n';
  }
  *out << Count(plan, PlannedChange::kInstall) << " to install, "
       << Count(plan, PlannedChange::kReplace) << " to replace, "
       << Count(plan, PlannedChange::kRemove) << " to remove, " << plan.unchanged << " unchanged\n";
}

void WritePlanAsJson(const Plan& plan, std::ostream* out) {
  nlohmann::ordered_json json;
  json["steps"] = nlohmann::ordered_json::array();
  for (const PlanStep& step : plan.steps) {
    nlohmann::ordered_json entry;
    entry["change"] = ChangeName(step.change);
    entry["kind"] = HalKindName(step.kind);
    entry["id"] = step.id;
    if (!step.name.empty()) entry["name"] = step.name;
    if (step.change == PlannedChange::kReplace) {
      entry["changes"] = ChangedFields(step.present, step.wanted);
    } else if (step.change == PlannedChange::kInstall) {
      entry["wanted"] = step.wanted;
    } else {
      entry["present"] = step.present;
    }
    json["steps"].push_back(std::move(entry));
  }
  json["summary"] = {{"install", Count(plan, PlannedChange::kInstall)},
                     {"replace", Count(plan, PlannedChange::kReplace)},
                     {"remove", Count(plan, PlannedChange::kRemove)},
                     {"unchanged", plan.unchanged}};
  *out << JsonText(json, 1) << '\n';
}

}  // namespace reference
