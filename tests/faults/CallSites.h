// CallSites: where the library calls the platform, as its unoptimised code tells, and at which of these places a
// call has failed.
//   Shape    a place is a line of the library's source text and a call of `calls()`. That a call is made on the way
//            through a function that a header of the platform defines, or by a function that is handed a pointer to
//            it, makes no difference: the line is the library's own.
#pragma once

#include <map>
#include <set>
#include <string>
#include <utility>

namespace faults {

/// "Unit.cpp:line" and the call's name.
using Site = std::pair<std::string, std::string>;

/// Optimised code makes calls from elsewhere: inlined, merged, or jumped to with its caller's return address.
bool canTellSites();
/// All there are.
std::set<Site> sitesOfLibrary();
/// The errors that were given at each of `sites` in this process and its children.
std::map<Site, std::set<int>> errorsGivenAt(const std::set<Site>& sites);
/// The source text at a site, without what surrounds it.
std::string textAt(const Site& site);

}  // namespace faults
