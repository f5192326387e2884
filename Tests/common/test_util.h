// Helpers the suites share: files, a scratch directory, subprocesses and the lists of explained differences.
#ifndef PDFKILN_TESTS_COMMON_TEST_UTIL_H
#define PDFKILN_TESTS_COMMON_TEST_UTIL_H

#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace testutil {

inline bool exists(const std::string& path) { return std::filesystem::exists(path); }

inline std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

template <typename Bytes>
void writeFile(const std::string& path, const Bytes& data) {
    std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(data.data()),
                                                static_cast<std::streamsize>(data.size()));
}

// A directory under /tmp, removed with everything in it.
class TempDir {
public:
    TempDir() {
        std::string t = (std::filesystem::temp_directory_path() / "pdfkiln-test-XXXXXX").string();
        if (char* p = ::mkdtemp(t.data())) path = p;
    }
    ~TempDir() {
        std::error_code ec;
        if (!path.empty()) std::filesystem::remove_all(path, ec);
    }
    std::string file(const std::string& name) const { return path + "/" + name; }
    std::string path;
};

inline std::string quote(const std::string& s) {
    std::string q = "'";
    for (char c : s) q += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return q + "'";
}

// Runs a shell command: its exit status (128 + signal when killed) and, when asked, its standard output alone.
inline int run(const std::string& cmd, std::string* out = nullptr) {
    FILE* p = popen((cmd + (out ? " 2>/dev/null" : " >/dev/null 2>&1")).c_str(), "r");
    if (!p) return -1;
    char buf[65536];
    std::size_t n;
    while ((n = fread(buf, 1, sizeof buf, p)) > 0)
        if (out) out->append(buf, n);
    const int status = pclose(p);
    if (WIFEXITED(status)) return WEXITSTATUS(status);
    if (WIFSIGNALED(status)) return 128 + WTERMSIG(status);
    return -1;
}

inline std::vector<std::string> lines(const std::string& text) {
    std::vector<std::string> v;
    std::istringstream in(text);
    for (std::string l; std::getline(in, l);) v.push_back(l);
    return v;
}

// The lines of a list file, without '#' comment lines and empty lines.
inline std::vector<std::string> listFile(const std::string& path) {
    std::vector<std::string> v;
    for (const std::string& l : lines(readFile(path)))
        if (!l.empty() && l[0] != '#') v.push_back(l);
    return v;
}

// A checked-in list of explained differences: per line the name, a tab (or blanks) and the rule.
inline std::map<std::string, std::string> explained(const std::string& path) {
    std::map<std::string, std::string> m;
    for (const std::string& l : listFile(path)) {
        std::size_t cut = l.find('\t');
        if (cut == std::string::npos) cut = l.find(' ');
        const std::size_t rule = cut == std::string::npos ? cut : l.find_first_not_of("\t ", cut);
        m[l.substr(0, cut)] = rule == std::string::npos ? "" : l.substr(rule);
    }
    return m;
}

}  // namespace testutil

#endif
