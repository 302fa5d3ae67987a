// A host that writes numbers with a comma, as an application in Europe does: C's locale and C++'s.
#pragma once

#include <clocale>
#include <cstdlib>
#include <fstream>
#include <locale>
#include <string>

#include "tests/fakes/scratch.h"

namespace orvanic_xr {

class CommaLocale {
 public:
    CommaLocale() : cpp_before_(std::locale::global(std::locale(std::locale::classic(), new Commas))) {
        // No locale with a comma need be installed, so one is compiled.
        std::ofstream(directory_.path() + "/source") << "LC_NUMERIC\n"
                                                        "decimal_point \",\"\n"
                                                        "thousands_sep \".\"\n"
                                                        "grouping 3\n"
                                                        "END LC_NUMERIC\n";
        const std::string compile =
            "localedef -c -i " + directory_.path() + "/source -f UTF-8 " + directory_.path() + "/comma >/dev/null 2>&1";
        const int warned = std::system(compile.c_str());  // of the categories that the source leaves out
        static_cast<void>(warned);
        active_ = std::setlocale(LC_ALL, "comma") != nullptr && std::strtod("1,5", nullptr) == 1.5;
    }
    ~CommaLocale() {
        std::locale::global(cpp_before_);
        std::setlocale(LC_ALL, "C");
    }
    CommaLocale(const CommaLocale&) = delete;
    CommaLocale& operator=(const CommaLocale&) = delete;

    // False where no locale can be compiled; then only C++'s locale is changed.
    bool active() const { return active_; }

 private:
    struct Commas : std::numpunct<char> {
        char do_decimal_point() const override { return ','; }
        char do_thousands_sep() const override { return '.'; }
        std::string do_grouping() const override { return "\3"; }
    };

    ScratchDirectory directory_;
    ScopedVariable search_path_{"LOCPATH", directory_.path()};
    std::locale cpp_before_;
    bool active_ = false;
};

}  // namespace orvanic_xr
