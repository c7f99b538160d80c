#ifndef ZUSKUX_REFERENCE_MANAGER_WEB_MANAGER_QUERIES_H_
#define ZUSKUX_REFERENCE_MANAGER_WEB_MANAGER_QUERIES_H_

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "reference/hal/hal_connection.h"
#include "reference/hal/message_fields.h"
#include "reference/manager/engine/manager.h"
#include "reference/manager/views/status.h"
#include "reference/manager/web/change_history.h"
#include "reference/web/http_message.h"

namespace reference {

/// A running manager, for its pages. Nothing is owned; all of it is used on the manager's thread,
/// except for what `HalConnection` offers to any thread.
struct WatchedManager {
  Manager* manager = nullptr;
  const HalConnection* hal = nullptr;
  std::function<StatusHead()> head;
  /// The names of the current site's interfaces.
  std::function<const InterfaceNames&()> interfaces;
  /// How many objects a request for the list examines at most.
  std::size_t max_examined = std::size_t{1} << 17U;
};

/// Rows of a page of a list: the most, and how many without a limit in the request.
inline constexpr std::size_t kMaxRows = 1000;
inline constexpr std::size_t kDefaultRows = 100;
/// The longest text of a parameter.
inline constexpr std::size_t kMaxText = 200;

// What the pages ask the manager, each a query whose steps are short whatever the number of
// objects. Arguments that name no kind, state or object, and the like, throw `HttpError`.

/// The status as `StatusAsJson` has it, with the program's instance.
std::shared_ptr<Query> AskStatus(const WatchedManager& manager, const std::string& instance);

/// The metrics, for Prometheus.
std::shared_ptr<Query> AskMetrics(const WatchedManager& manager);

/// A page of the list of objects.
std::shared_ptr<Query> AskObjects(const WatchedManager& manager, const HttpRequest& request);

/// An object with its fields, its neighbours and its history. `history` is used on the HTTP
/// server's thread and must outlive the query.
std::shared_ptr<Query> AskObject(const WatchedManager& manager, const ObjectKey& key,
                                 const ChangeHistory* history);

/// Why an object is, or is not, in place.
std::shared_ptr<Query> AskExplanation(const WatchedManager& manager, const ObjectKey& key);

/// The drawing of a neighbourhood.
std::shared_ptr<Query> AskGraph(const WatchedManager& manager, const HttpRequest& request);

/// The key of "/api/objects/KIND/ID".
ObjectKey ReadKey(const std::string& kind, const std::string& id);
/// The key "KIND:ID".
ObjectKey ReadKey(const std::string& text);
std::set<Standing> ReadStandings(Parameters* parameters);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_MANAGER_WEB_MANAGER_QUERIES_H_
