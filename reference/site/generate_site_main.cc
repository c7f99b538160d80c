// zuskux-generate-site: writes a pseudo-random site file.

#include <unistd.h>

#include <boost/program_options.hpp>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <iostream>
#include <limits>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "reference/site/generate_site.h"
#include "reference/site/site_writer.h"
#include "reference/text/file_remedy.h"
#include "reference/text/printable.h"

namespace {

namespace fs = std::filesystem;
namespace po = boost::program_options;

constexpr int kFailed = 1;
constexpr int kBadUsage = 2;

constexpr const char* kUsage = "zuskux-generate-site --objects N [--seed S] [-o FILE]";

struct Arguments {
  std::size_t objects = 0;
  std::uint32_t seed = 0;
  // Empty for standard output.
  std::string output;
};

po::options_description Options() {
  po::options_description options("Options");
  // The numbers are parsed as wide signed values, so that -1 does not become a huge number.
  options.add_options()                                                       //
      ("objects", po::value<std::int64_t>()->value_name("N"),                 //
       "number of VRFs and destinations, 1 to 10000000")                      //
      ("seed", po::value<std::int64_t>()->value_name("S")->default_value(1),  //
       "0 to 4294967295; the same seed gives the same site")                  //
      ("output,o", po::value<std::string>()->value_name("FILE"),              //
       "where to write (default: standard output)")                           //
      ("help,h", "show this help and exit")                                   //
      ("version", "show the version and exit");
  return options;
}

std::int64_t ReadNumber(const po::variables_map& values, const std::string& option,
                        std::int64_t first, std::int64_t last) {
  const auto value = values[option].as<std::int64_t>();
  if (value < first || value > last) {
    throw std::invalid_argument("--" + option + ' ' + std::to_string(value) +
                                " is out of range; use " + std::to_string(first) + " to " +
                                std::to_string(last));
  }
  return value;
}

Arguments ReadArguments(const po::variables_map& values) {
  if (values.count("words") != 0) {
    throw std::invalid_argument("'" + values["words"].as<std::vector<std::string>>().front() +
                                "' is not an option; write " + kUsage);
  }
  if (values.count("objects") == 0) {
    throw std::invalid_argument("--objects is missing; add --objects N");
  }
  Arguments arguments;
  arguments.objects = static_cast<std::size_t>(
      ReadNumber(values, "objects", 1, std::int64_t{reference::kMaxGeneratedObjects}));
  arguments.seed = static_cast<std::uint32_t>(
      ReadNumber(values, "seed", 0, std::numeric_limits<std::uint32_t>::max()));
  if (values.count("output") != 0) arguments.output = values["output"].as<std::string>();
  return arguments;
}

// `mode` is that of std::fopen.
void WriteAll(const std::string& path, const char* mode, const std::string& text) {
  std::FILE* file = std::fopen(path.c_str(), mode);
  bool written = file != nullptr && std::fwrite(text.data(), 1, text.size(), file) == text.size();
  if (file != nullptr && std::fclose(file) != 0) written = false;
  if (!written) throw std::system_error(errno, std::generic_category());
}

// Replaces the file atomically: the old one at `path` stays until the whole text is on disk.
void ReplaceFile(const fs::path& path, const std::string& text) {
  const std::string unfinished = path.string() + ".unfinished-" + std::to_string(getpid());
  try {
    WriteAll(unfinished, "wxe", text);
    fs::rename(unfinished, path);
  } catch (...) {
    std::error_code ignored;
    fs::remove(unfinished, ignored);
    throw;
  }
}

void Write(const std::string& output, const std::string& text) {
  if (output.empty()) {
    if (!(std::cout << text << std::flush)) throw std::system_error(errno, std::generic_category());
  } else if (!fs::exists(output)) {
    ReplaceFile(output, text);
  } else if (fs::is_regular_file(output)) {
    ReplaceFile(fs::canonical(output), text);
  } else {
    // Writes to a device or a pipe instead of replacing it.
    WriteAll(output, "we", text);
  }
}

int Run(int argc, char** argv) {
  po::variables_map values;
  Arguments arguments;
  try {
    namespace style = po::command_line_style;
    const po::options_description options = Options();
    po::options_description all;
    all.add(options).add_options()("words", po::value<std::vector<std::string>>());
    po::positional_options_description words;
    words.add("words", -1);
    po::store(po::command_line_parser(argc, argv)
                  .options(all)
                  .positional(words)
                  .style(style::unix_style & ~style::allow_guessing)
                  .run(),
              values);
    if (values.count("help") != 0) {
      std::cout << "Usage: " << kUsage << "\nWrites a valid pseudo-random site file.\n\n"
                << options << "\nExit status: 0 written, 1 not written, 2 wrong usage.\n";
      return 0;
    }
    if (values.count("version") != 0) {
      std::cout << "zuskux-generate-site " ZUSKUX_VERSION "\n";
      return 0;
    }
    arguments = ReadArguments(values);
  } catch (const std::exception& error) {
    std::cerr << "zuskux-generate-site: " << reference::Printable(error.what()) << "; see --help\n";
    return kBadUsage;
  }

  try {
    Write(arguments.output,
          reference::WriteSite(reference::GenerateSite(arguments.seed, arguments.objects)));
  } catch (const std::system_error& error) {
    const std::string target = arguments.output.empty() ? "standard output" : arguments.output;
    std::cerr << "zuskux-generate-site: cannot write " << reference::Printable(target) << ": "
              << error.code().message() << "; "
              << reference::Printable(reference::FileRemedy(target, error.code().value())) << '\n';
    return kFailed;
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return Run(argc, argv);
  } catch (const std::exception& error) {
    std::cerr << "zuskux-generate-site: " << reference::Printable(error.what())
              << "; ask for fewer --objects\n";
    return kFailed;
  }
}
