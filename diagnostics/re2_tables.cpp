// Debian's source package of re2 comes without the tables of Unicode's and Perl's named classes and of case
// folding, which its build makes from other packages. The one pattern of this system names no class and folds
// no case, so it does with empty tables: "\d", "(?i)" and named groups must not come into it.

#include <re2/unicode_casefold.h>
#include <re2/unicode_groups.h>

namespace re2 {

// An array can't be empty, so each has one unused row.
const UGroup unicode_groups[] = {{}};
const int num_unicode_groups = 0;

const UGroup posix_groups[] = {{}};
const int num_posix_groups = 0;

const UGroup perl_groups[] = {{}};
const int num_perl_groups = 0;

const CaseFold unicode_casefold[] = {{}};
const int num_unicode_casefold = 0;

const CaseFold unicode_tolower[] = {{}};
const int num_unicode_tolower = 0;

}  // namespace re2
