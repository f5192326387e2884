// What the sub-commands share: exit statuses, argument checks with messages
// that name the bad argument, and opening a document with the reading
// options and the password handled the same way everywhere.
#ifndef PDFKILN_TOOL_COMMON_H
#define PDFKILN_TOOL_COMMON_H

#include <string>

namespace PDF_KILN {
class CPDFKilnPage;
}

namespace tool {

// Exit statuses of every command; 3 is a partial result (compose with pages
// skipped or emptied).
enum ExitStatus { kExitOk = 0, kExitFailed = 1, kExitUsage = 2, kExitPartial = 3, kExitPassword = 4 };

// Prints "pdfkiln COMMAND: MESSAGE" and where the command's help is; returns kExitUsage.
int usageError(const char* command, const std::string& message);

// A whole number from 1 to `max`, nothing else (no sign, no fraction, no
// trailing text). On failure prints which option got what, and returns false.
bool parseCount(const char* command, const char* option, const char* text, int max, int& out);

// "" when `path` can be opened for reading as a file; otherwise the reason
// in the words of the C library ("No such file or directory", "Is a directory").
std::string fileProblem(const std::string& path);
// True when both names reach the same file (an existing one).
bool sameFile(const std::string& a, const std::string& b);

// The reading options of the command line.
struct ReadOptions {
    std::string password;
    bool strict = false;  // --strict: the library's own reading rules only
};

// Sets the reading options on `doc`, opens it and enters the password. On a
// problem prints "pdfkiln: FILE: what" and returns the exit status; 0 when
// the document is ready.
int openDocument(PDF_KILN::CPDFKilnPage& doc, const std::string& file, const ReadOptions& options);

// The facade's result code in words.
const char* resultText(int rc);

}  // namespace tool

#endif
