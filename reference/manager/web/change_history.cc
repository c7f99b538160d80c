#include "reference/manager/web/change_history.h"

#include <nlohmann/json.hpp>
#include <string>
#include <utility>

#include "reference/manager/views/status.h"

namespace reference {

using std::chrono::system_clock;

nlohmann::ordered_json ChangeAsJson(const Change& change) {
  nlohmann::ordered_json json = {{"seq", change.seq},
                                 {"time_ms", Milliseconds(change.time)},
                                 {"key", KeyText(change.row.key)}};
  json.update(RowAsJson(change.row));
  return json;
}

void ChangeHistory::Ring::Add(const Change& change, std::size_t max) {
  if (changes.size() == max) {
    since = changes.front().time;
    changes.pop_front();
  }
  changes.push_back(change);
}

ChangeHistory::ChangeHistory() { all_.since = refusals_.since = system_clock::now(); }

void ChangeHistory::Add(const Change& change) {
  if (change.row.standing == Standing::kFailed) refusals_.Add(change, kMaxRefusals);
  all_.Add(change, kMaxChanges);
}

void ChangeHistory::Lose(system_clock::time_point time) { all_.since = refusals_.since = time; }

ChangeHistory::Page ChangeHistory::Find(const Wanted& wanted) const {
  const bool refusals_only = wanted.standings == std::set<Standing>{Standing::kFailed};
  const Ring& ring = refusals_only ? refusals_ : all_;
  Page page;
  page.since = ring.since;
  for (auto change = ring.changes.rbegin(); change != ring.changes.rend(); ++change) {
    if (change->seq >= wanted.before) continue;
    if (wanted.key && !(change->row.key == *wanted.key)) continue;
    if (!wanted.standings.empty() && wanted.standings.count(change->row.standing) == 0) continue;
    if (page.changes.size() == wanted.limit) {
      page.more = true;
      break;
    }
    page.changes.push_back(&*change);
  }
  return page;
}

}  // namespace reference
