// Sub-commands of the pdfkiln tool. Each takes the arguments after its own
// name (argv[0] is the sub-command name) and returns the process exit code.
#ifndef PDFKILN_TOOL_COMMANDS_H
#define PDFKILN_TOOL_COMMANDS_H

#include <cstddef>

int cmdInfo(int argc, char** argv);
int cmdXref(int argc, char** argv);
int cmdObject(int argc, char** argv);
int cmdJbig2(int argc, char** argv);
int cmdCompose(int argc, char** argv);
int cmdFind(int argc, char** argv);
int cmdContent(int argc, char** argv);
int cmdMerge(int argc, char** argv);
int cmdSplit(int argc, char** argv);

// The decoded-size budget that every command hands to the library: the value
// of --max-decoded (any command), 256 MiB when none is given.
std::size_t decodedBudget();

#endif
