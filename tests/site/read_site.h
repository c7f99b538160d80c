#ifndef ZUSKUX_TESTS_SITE_READ_SITE_H_
#define ZUSKUX_TESTS_SITE_READ_SITE_H_

#include <gtest/gtest.h>

#include <string>
#include <variant>
#include <vector>

#include "reference/site/site.h"
#include "reference/site/site_reader.h"

namespace reference {

/// The mistakes of a result, one "<file>:<line>:<column>: <text>" per line; empty for a site.
inline std::string Mistakes(const SiteOrMistakes& result, const std::string& file = "site.txtpb") {
  std::string lines;
  if (const auto* errors = std::get_if<std::vector<Diagnostic>>(&result)) {
    for (const Diagnostic& error : *errors) lines += FormatDiagnostic(file, error) + '\n';
  }
  return lines;
}

/// The site of a result; the test fails if there is none.
inline Site SiteOf(SiteOrMistakes result) {
  EXPECT_EQ(Mistakes(result), "");
  Site* site = std::get_if<Site>(&result);
  return site == nullptr ? Site() : *site;
}

}  // namespace reference

#endif  // ZUSKUX_TESTS_SITE_READ_SITE_H_
