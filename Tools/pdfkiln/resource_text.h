// The one place where the tool rewrites text the library gave it: the
// resource dictionary of a placed page.
#ifndef PDFKILN_TOOL_RESOURCE_TEXT_H
#define PDFKILN_TOOL_RESOURCE_TEXT_H

#include <string>

// The resource text of a page made fit for the output: brackets balanced
// (the merged text of the library may close a name list it never opened) and
// each key of a dictionary once, the last value in the place of the first, in
// dictionaries nested up to 32 deep; "<< >>" for an empty text. Strings,
// arrays and anything the rebuild does not understand pass as they stand.
std::string cleanResources(const std::string& text);

// Only the bracket balancing of cleanResources.
std::string balancedResources(std::string text);

#endif
