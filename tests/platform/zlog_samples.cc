/// zlog_samples CONFIG: writes a fixed series of records as CONFIG says, and lists on standard
/// output which levels are enabled. compare_zlogs.sh runs it with two libraries.

#include <zlog.h>

#include <iostream>
#include <string>

int main(int argc, char** argv) {
  if (argc != 2 || zlog_init(argv[1]) != 0) return 1;
  for (const char* const name : {"zuskux", "zuskux_vlan", "other"}) {
    zlog_category_t* const category = zlog_get_category(name);
    std::cout << name << ':';
    for (int level = 1; level <= 253; ++level) {
      if (zlog_level_enabled(category, level) != 0) std::cout << ' ' << level;
    }
    std::cout << '\n';
    for (const int level : {1, 10, 11, 12, 20, 40, 60, 80, 100, 120, 200, 253}) {
      for (const std::string& text : {std::string("text"), std::string(), std::string("two\nlines"),
                                      std::string("100% # \"\\n\""), std::string(70'000, 'x')}) {
        zlog(category, "src/hai/hai_callback.cc", 20, "Operator()", 8, level, level, "%s|%d",
             text.c_str(), level);
      }
    }
  }
  zlog_fini();
}
