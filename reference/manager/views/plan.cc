#include "reference/manager/views/plan.h"

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>
#include <string_view>
#include <utility>

#include "reference/hal/message_text.h"
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

void WriteMessage(const char* label, HalKind kind, const std::string& payload, std::ostream* out) {
  if (!payload.empty()) *out << "         " << label << MessageText(kind, payload) << '\n';
}

}  // namespace

Plan MakePlan(const Site& site, const TableEntries& present) {
  DestDatabase database;
  RequestQueue queue;
  for (Object* const object : database.Replace(site).changed) queue.Add(object);

  Plan plan;
  TableEntries left = present;
  while (!queue.empty()) {
    Object* const object = database.FindEntry(queue.front());
    queue.Remove(object);
    const HalMessage message = TranslateForHal(object->content);
    const HalKind kind = object->key.kind;
    const auto entry = left.find({kind, message.id});
    if (entry == left.end()) {
      plan.steps.push_back(
          {PlannedChange::kInstall, kind, message.id, object->name, {}, message.payload});
      continue;
    }
    if (entry->second == message.payload) {
      ++plan.unchanged;
    } else {
      plan.steps.push_back({PlannedChange::kReplace, kind, message.id, object->name, entry->second,
                            message.payload});
    }
    left.erase(entry);
  }
  for (const auto& [key, payload] : left) {
    plan.steps.push_back({PlannedChange::kRemove, key.first, key.second, {}, payload, {}});
  }
  return plan;
}

void WritePlan(const Plan& plan, std::ostream* out) {
  for (const PlanStep& step : plan.steps) {
    *out << ChangeName(step.change) << "  " << HalKindName(step.kind) << ' ' << step.id;
    if (!step.name.empty()) *out << "  " << Printable(step.name);
    *out << '\n';
    const bool both = step.change == PlannedChange::kReplace;
    WriteMessage(both ? "from " : "", step.kind, step.present, out);
    WriteMessage(both ? "to   " : "", step.kind, step.wanted, out);
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
    if (!step.present.empty()) entry["present"] = MessageText(step.kind, step.present);
    if (!step.wanted.empty()) entry["wanted"] = MessageText(step.kind, step.wanted);
    json["steps"].push_back(std::move(entry));
  }
  json["summary"] = {{"install", Count(plan, PlannedChange::kInstall)},
                     {"replace", Count(plan, PlannedChange::kReplace)},
                     {"remove", Count(plan, PlannedChange::kRemove)},
                     {"unchanged", plan.unchanged}};
  *out << JsonText(json, 1) << '\n';
}

}  // namespace reference
