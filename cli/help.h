// `qvthost help [NAME]`: the reference built into the program.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "reference.h"

namespace qvthost {

// With no word, the families and how to ask for a name; with one, the
// entries of the declarations it names (a name or a unique prefix of one,
// without regard to case, or a declaration in full). Returns the exit
// status: 0, 1 when nothing matches, 2 for more than one word.
int Help(const std::vector<std::string> &words, std::ostream &out);

// The same over given pages, the index "README.md" among them.
int Help(const std::vector<std::string> &words, const std::vector<reference::Page> &pages,
         const std::vector<reference::Family> &families, std::ostream &out);

}  // namespace qvthost
