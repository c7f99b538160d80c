#include "reference/manager/views/explain.h"

#include "reference/manager/views/report.h"
#include "reference/text/printable.h"

namespace reference {
namespace {

std::string Named(const Object& object) { return KeyText(object.key) + ' ' + Quote(object.name); }

// Continues the sentence that starts with the object's name.
std::string Verdict(const Object& object) {
  switch (StandingOf(object)) {
    case Standing::kPending:
      return "is pending: its request is not sent or not answered yet";
    case Standing::kInstalled:
      return "is installed";
    case Standing::kInactive:
      return "is installed but inactive: " + ReasonOf(object);
    case Standing::kSent:
      return "was sent; the HAL has accepted it";
    case Standing::kFailed:
      return (object.broken ? "was installed but does not work: " : "failed: ") + ReasonOf(object);
    case Standing::kRemoved:
      break;
  }
  return "was removed";
}

// The id of the first destination that the object refers to and that the HAL does not hold; 0 if
// there is none.
std::uint32_t FirstMissing(const DestDatabase& database, const Object& object) {
  if (object.state() != ObjectState::kFailed || object.code != kHalMissingReference) return 0;
  for (const std::uint32_t id : ReferencedIds(object.content)) {
    if (!database.InHal(id)) return id;
  }
  return 0;
}

}  // namespace

std::vector<ExplainStep> ExplainSteps(const DestDatabase& database, const ObjectKey& key) {
  const Object* object = database.Find(key);
  if (object == nullptr) return {};
  std::vector<ExplainStep> steps = {{key, Named(*object) + ' ' + Verdict(*object)}};
  while (const std::uint32_t missing = FirstMissing(database, *object)) {
    const std::string link =
        object->key.kind == HalKind::kEcmp ? "it lacks member " : "it rides on ";
    object = database.FindReferenced(missing);
    if (object == nullptr) {
      steps.push_back({std::nullopt, link + std::to_string(missing) + ", which does not exist"});
      break;
    }
    steps.push_back({object->key, link + Named(*object) + ", which " + Verdict(*object)});
  }
  return steps;
}

std::optional<std::string> Explain(const DestDatabase& database, const ObjectKey& key) {
  const std::vector<ExplainStep> steps = ExplainSteps(database, key);
  if (steps.empty()) return std::nullopt;
  std::string text;
  std::string indent;
  for (const ExplainStep& step : steps) {
    text += indent + step.text + '\n';
    indent += "  ";
  }
  return text;
}

bool IsInPlace(const DestDatabase& database, const ObjectKey& key) {
  const Object* const object = database.Find(key);
  if (object == nullptr) return false;
  const Standing standing = StandingOf(*object);
  return standing != Standing::kPending && standing != Standing::kFailed;
}

}  // namespace reference
