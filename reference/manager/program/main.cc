// zuskux-manager: the reference destination manager, and commands that ask a running one.

#include <cstdlib>
#include <exception>
#include <iostream>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "reference/manager/program/check_sites.h"
#include "reference/manager/program/chosen_hal.h"
#include "reference/manager/program/command_line.h"
#include "reference/manager/program/commands.h"
#include "reference/manager/program/exit_status.h"
#include "reference/manager/program/log_setup.h"
#include "reference/manager/program/read_site.h"
#include "reference/manager/program/run.h"
#include "reference/manager/program/standard_error.h"
#include "reference/manager/views/plan.h"

namespace reference {
namespace {

int Finish(int status = EXIT_SUCCESS) {
  std::cout.flush();
  if (!std::cout) throw std::runtime_error("cannot write to standard output");
  return status;
}

int Check(const CommandLine& line) {
  const bool usable = CheckSites(line.check, line.json, &std::cout);
  const int status = Finish();
  return usable ? status : kExitFailed;
}

int ShowPlan(const CommandLine& line, const Site& site) {
  const Plan plan = MakePlan(site, ChosenHal(MakeHalChoice(line)).ReadTables());
  if (line.json) {
    WritePlanAsJson(plan, &std::cout);
  } else {
    WritePlan(plan, &std::cout);
  }
  const int status = Finish();
  return HasChanges(plan) ? kExitIncomplete : status;
}

int RunWithSites(const CommandLine& line) {
  // A plan is the answer to a command, like the findings of --check.
  if (!line.plan) StandardError().ShowTimes();
  std::vector<Site> sites;
  bool readable = true;
  for (const std::string& path : line.sites) {
    auto site = ReadSiteOrLogMistakes(path);
    if (site) {
      sites.push_back(std::move(*site));
    } else {
      readable = false;
    }
  }
  if (!readable) return kExitFailed;
  std::optional<LibraryLog> library_log;
  if (line.log_config) {
    library_log.emplace(*line.log_config);
  } else {
    library_log.emplace(line.trace, &StandardError());
  }
  if (line.plan) return ShowPlan(line, sites.front());
  return RunManager(line, std::move(sites));
}

int Main(const std::vector<std::string>& arguments) {
  try {
    if (const auto status = RunCommand(arguments)) return Finish(*status);
    const CommandLine line = ParseCommandLine(arguments);
    if (line.help) {
      std::cout << HelpText();
      return Finish();
    }
    if (line.version) {
      std::cout << "zuskux-manager " ZUSKUX_VERSION "\n";
      return Finish();
    }
    return line.check.empty() ? RunWithSites(line) : Check(line);
  } catch (const UsageError& error) {
    StandardError().Write(LogLevel::kError, error.what());
    return kExitUsage;
  } catch (const std::exception& error) {
    StandardError().Write(LogLevel::kError, error.what());
    return kExitFailed;
  }
}

}  // namespace
}  // namespace reference

int main(int argc, char** argv) { return reference::Main({argv + 1, argv + argc}); }
