// The rules that the sources themselves follow, where no compiler and no other tool knows them.

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <iterator>
#include <map>
#include <regex>
#include <set>
#include <sstream>

#include "Repository.h"

namespace fs = std::filesystem;

namespace {

std::vector<fs::path> filesOf(const std::vector<std::string>& folders,
                              const std::vector<std::string>& extensions) {
    std::vector<fs::path> files;
    for (const std::string& folder : folders) {
        for (const std::string& extension : extensions) {
            const std::vector<fs::path> some = repository::filesBelow(folder, extension);
            files.insert(files.end(), some.begin(), some.end());
        }
    }
    return files;
}

// --- the head of a header ---

std::string lowered(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

// The words before the colons of the first comment: "// Ownership, threads: none." answers two questions.
std::set<std::string> answersIn(const fs::path& header) {
    static const std::regex label("// ([A-Za-z]+(, [a-z]+)*): .*");
    std::set<std::string> answers;
    std::istringstream lines(repository::read(header));
    for (std::string line; std::getline(lines, line) && line.starts_with("//");) {
        std::smatch match;
        if (!std::regex_match(line, match, label)) continue;
        for (const std::string& word : repository::split(match[1], ", "))
            answers.insert(lowered(word));
    }
    return answers;
}

TEST(RulesTest, EachHeaderAnswersTheFiveQuestions) {
    std::size_t asked = 0;
    for (const fs::path& header :
         filesOf({"source", "platform", "transport", "simulation", "tools"}, {".h"})) {
        const std::set<std::string> answers = answersIn(header);
        for (const char* const question : {"purpose", "ownership", "threads", "units", "errors"}) {
            EXPECT_EQ(answers.count(question), 1U) << header << " says nothing of its " << question;
            ++asked;
        }
    }
    EXPECT_GT(asked, 200U);
}

// --- deliberate oddities ---

std::set<std::string> namesOfTests() {
    static const std::regex test("\\bTEST(?:_[FP])?\\((\\w+),\\s*(\\w+)\\)");
    std::set<std::string> names;
    for (const fs::path& file : filesOf({"tests"}, {".cpp"})) {
        const std::string text = repository::read(file);
        for (std::sregex_iterator it(text.begin(), text.end(), test); it != std::sregex_iterator(); ++it) {
            names.insert((*it)[1]);
            names.insert((*it)[1].str() + "." + (*it)[2].str());
        }
    }
    return names;
}

// What the comments of a file say after "Deliberate:", each up to its last line.
std::vector<std::string> deliberatelyIn(const fs::path& file) {
    std::vector<std::string> reasons;
    bool inReason = false;
    for (const std::string& line : repository::split(repository::read(file), "\n")) {
        const std::size_t comment = line.find("//");
        const std::size_t begin = line.find("Deliberate:");
        inReason = begin != std::string::npos || (inReason && comment != std::string::npos);
        if (begin != std::string::npos) {
            reasons.push_back(line.substr(begin));
        } else if (inReason) {
            reasons.back() += " " + repository::collapsed(line.substr(comment + 2));
        }
    }
    return reasons;
}

TEST(RulesTest, EachDeliberateOddityNamesTheTestThatHoldsIt) {
    static const std::regex reference("\\bsee (\\w+Test(?:\\.\\w+)?)");
    const std::set<std::string> tests = namesOfTests();
    std::size_t found = 0;
    for (const fs::path& file :
         filesOf({"source", "platform", "transport", "simulation", "tools", "sample"}, {".cpp", ".h"})) {
        for (const std::string& reason : deliberatelyIn(file)) {
            std::smatch match;
            ++found;
            EXPECT_TRUE(std::regex_search(reason, match, reference) && tests.count(match[1]) == 1)
                << file << ": \"" << reason << "\" names no test that exists";
        }
    }
    EXPECT_GT(found, 20U);
}

// How often the code of the files names something; comments are left out.
std::ptrdiff_t timesNamed(const std::string& name, const std::vector<fs::path>& files) {
    const std::regex word("\\b" + name + "\\b");
    std::ptrdiff_t times = 0;
    for (const fs::path& file : files) {
        for (const std::string& line : repository::split(repository::read(file), "\n")) {
            const std::string code = line.substr(0, line.find("//"));
            times += std::distance(std::sregex_iterator(code.begin(), code.end(), word), {});
        }
    }
    return times;
}

// What the sources keep although nothing uses it: its definition is the only place that names it.
TEST(RulesTest, WhatIsKeptUnusedIsUsedByNothing) {
    const std::vector<fs::path> sources = filesOf({"source"}, {".cpp", ".h"});
    for (const char* const name : {"ignoreSignal", "stopOnSignal", "consoleLogger", "m_status", "m_reserved"})
        EXPECT_EQ(timesNamed(name, sources), 1) << name;
    EXPECT_EQ(timesNamed("logger", {repository::root() / "source/ZORNTService.cpp"}), 1);
}

// --- what tests rely on ---

// Classes open their insides to TestAccess alone, and nothing is made visible to derived classes for tests to derive.
TEST(RulesTest, TestsReachWhatClassesKeepToThemselvesInOnePlace) {
    static const std::regex widening("\n\\s*using \\w+::m_\\w+;");
    for (const fs::path& file : filesOf({"tests", "bench"}, {".cpp", ".h"}))
        EXPECT_FALSE(std::regex_search(repository::read(file), widening))
            << file << " widens the access to a field";
    const std::vector<fs::path> headers =
        filesOf({"source", "platform", "transport", "simulation", "tools"}, {".h"});
    const fs::path access = repository::root() / "tests/support/TestAccess.h";
    std::size_t friends = 0;
    for (const fs::path& header : headers) {
        if (timesNamed("TestAccess", {header}) == 0) continue;
        ++friends;
        EXPECT_GT(timesNamed(header.stem().string(), {access}), 0)
            << header << " has a friend that never calls";
    }
    EXPECT_GT(friends, 5U);
}

// --- one way to do each thing ---

TEST(RulesTest, DocumentsAreOpenedAndParsedInOnePlace) {
    for (const fs::path& file : filesOf({"source", "platform"}, {".cpp", ".h"})) {
        const std::string name = file.stem().string();
        if (name == "TVLDocumentFile" || name == "TVLIDOM_Parser") continue;
        EXPECT_EQ(timesNamed("TVLIDOM_Parser", {file}), 0) << file << " parses a document by itself";
    }
}

// --- the doorway ---

// Names that are the system's alone, and those that count with their scope only, because other functions have them too.
constexpr const char* kCalls =
    "openat|fdopen|fdopendir|readdir|readlinkat|pwritev2|fstat|fstatat|fstatfs|ftruncate|fchmod|fchownat|"
    "unlinkat|mkdirat|fchdir|chdir|getcwd|fcntl|isatty|ioctl|execve|setsid|getpid|geteuid|putenv|getenv|"
    "dlopen|dlsym|dlclose|sigwait|clock_nanosleep|pthread_create|pthread_kill|syscall|waitid|getrlimit";
constexpr const char* kScopedCalls =
    "open|dup|read|write|stat|unlink|mkdir|poll|send|fork|kill|exit|time|getenv|fgets|fwrite|fflush|fprintf|"
    "filesystem::create_directories|filesystem::current_path";

std::vector<std::string> systemCallsIn(const fs::path& file) {
    static const std::regex call(std::string("(?:^|[^\\w.>:])((?:::)?(?:") + kCalls +
                                 ")|(?:::|std::)(?:" + kScopedCalls + "))\\(");
    std::vector<std::string> calls;
    for (const std::string& line : repository::split(repository::read(file), "\n")) {
        const std::string code = line.substr(0, line.find("//"));
        for (std::sregex_iterator it(code.begin(), code.end(), call); it != std::sregex_iterator(); ++it)
            calls.push_back((*it)[1]);
    }
    return calls;
}

// The table of processes is a part of the real one.
TEST(RulesTest, OnlyTheDoorwayCallsTheSystem) {
    static const std::regex doorway(
        "TVL(OsFiles|OsLoader|OsProcesses|RealOs|RealOsFiles|ProcessTable)\\.(h|cpp)");
    std::size_t behind = 0;
    for (const fs::path& file : filesOf({"source", "platform"}, {".cpp", ".h"})) {
        const std::vector<std::string> calls = systemCallsIn(file);
        if (std::regex_match(file.filename().string(), doorway)) {
            behind += calls.size();
            continue;
        }
        EXPECT_TRUE(calls.empty()) << file << " calls " << calls.front() << "() itself";
    }
    EXPECT_GT(behind, 60U);
}

// --- includes ---

// The header of a name of the standard library; of names that several have, none is told.
const std::map<std::string, std::string>& headersOfNames() {
    static const std::map<std::string, std::string> headers = [] {
        const std::pair<const char*, const char*> table[] = {
            {"algorithm",
             "all_of any_of clamp copy_if count count_if equal fill find find_if for_each generate max "
             "max_element min min_element none_of remove_if replace replace_if reverse search sort "
             "transform unique"},
            {"array", "array"},
            {"atomic", "atomic atomic_bool atomic_int"},
            {"cctype", "isalnum isalpha isdigit isspace isxdigit tolower toupper"},
            {"charconv", "from_chars to_chars"},
            {"chrono", "chrono"},
            {"condition_variable", "condition_variable"},
            {"cstdint", "int8_t int16_t int32_t int64_t uint8_t uint16_t uint32_t uint64_t"},
            {"cstdio", "FILE fclose fopen fprintf fputs printf puts snprintf"},
            {"cstdlib", "_Exit abort calloc exit free getenv malloc strtol strtoul system"},
            {"cstring", "memchr memcmp memcpy memset strchr strcmp strlen strncmp strstr"},
            {"deque", "deque"},
            {"filesystem", "filesystem"},
            {"fstream", "ifstream ofstream"},
            {"functional", "function"},
            {"iostream", "cerr cin cout"},
            {"limits", "numeric_limits"},
            {"map", "map multimap"},
            {"memory", "make_shared make_unique shared_ptr unique_ptr weak_ptr"},
            {"mutex", "call_once lock_guard mutex once_flag scoped_lock unique_lock"},
            {"optional", "nullopt optional"},
            {"regex", "regex smatch sregex_iterator"},
            {"set", "multiset set"},
            {"sstream", "istringstream ostringstream stringstream"},
            {"stdexcept", "invalid_argument length_error logic_error out_of_range runtime_error"},
            {"string", "string to_string"},
            {"string_view", "string_view"},
            {"thread", "this_thread thread"},
            {"variant", "get_if variant visit"},
            {"vector", "vector"},
        };
        std::map<std::string, std::string> all;
        for (const auto& [header, names] : table) {
            for (const std::string& name : repository::split(names, " "))
                all[name] = header;
        }
        return all;
    }();
    return headers;
}

// The line without the insides of its literals, up to its comment.
std::string codeOf(const std::string& line) {
    std::string code;
    bool inLiteral = false;
    for (std::size_t i = 0; i < line.size(); ++i) {
        if (!inLiteral && line.compare(i, 2, "//") == 0) break;
        if (line[i] == '"') inLiteral = !inLiteral;
        if (inLiteral && line[i] == '\\') ++i;
        if (!inLiteral) code += line[i];
    }
    return code;
}

void collectStandardNames(const std::string& code, std::set<std::string>& names) {
    const std::string prefix = "std::";
    for (std::size_t at = code.find(prefix); at != std::string::npos; at = code.find(prefix, at)) {
        at += prefix.size();
        const auto begin = code.begin() + static_cast<std::ptrdiff_t>(at);
        names.insert(std::string(begin, std::find_if(begin, code.end(), [](unsigned char c) {
                                     return std::isalnum(c) == 0 && c != '_';
                                 })));
    }
}

// The headers of the names that a file uses.
std::set<std::string> headersNeededBy(const fs::path& file) {
    std::set<std::string> names;
    for (const std::string& line : repository::split(repository::read(file), "\n"))
        collectStandardNames(codeOf(line), names);
    std::set<std::string> headers;
    for (const std::string& name : names) {
        const auto known = headersOfNames().find(name);
        if (known != headersOfNames().end()) headers.insert(known->second);
    }
    return headers;
}

// Where a quoted name leads: beside the file first, as the compiler looks.
fs::path projectHeader(const fs::path& from, const std::string& name) {
    if (fs::exists(from.parent_path() / name)) return from.parent_path() / name;
    for (const char* const folder : {"source", "platform", "transport", "simulation", "tools", "sample",
                                     "tests/support", "tests/fuzz"}) {
        if (fs::exists(repository::root() / folder / name)) return repository::root() / folder / name;
    }
    return {};
}

struct Include {
    bool isQuoted;
    std::string name;
};

// Read once: many files include the same headers.
const std::vector<Include>& includesIn(const fs::path& file) {
    static std::map<fs::path, std::vector<Include>> known;
    const auto [place, isNew] = known.try_emplace(file);
    std::istringstream lines(isNew ? repository::read(file) : "");
    for (std::string line; std::getline(lines, line);) {
        const std::string start = "#include ";
        if (!line.starts_with(start)) continue;
        const bool isQuoted = line[start.size()] == '"';
        const std::size_t end = line.find(isQuoted ? '"' : '>', start.size() + 1);
        place->second.push_back({isQuoted, line.substr(start.size() + 1, end - start.size() - 1)});
    }
    return place->second;
}

// The headers of the language and the system that a file includes, itself or through headers of this project.
void collectIncludes(const fs::path& file, std::set<fs::path>& seen, std::set<std::string>& included) {
    if (file.empty() || !seen.insert(file).second) return;
    for (const Include& include : includesIn(file)) {
        if (include.isQuoted) {
            collectIncludes(projectHeader(file, include.name), seen, included);
        } else {
            included.insert(include.name);
        }
    }
}

// What another standard header brings along differs from one compiler to the next.
TEST(RulesTest, EachFileIncludesTheHeadersOfTheNamesItUses) {
    std::size_t used = 0;
    for (const fs::path& file :
         filesOf({"source", "platform", "transport", "simulation", "tools", "sample", "tests", "bench"},
                 {".cpp", ".h"})) {
        std::set<fs::path> seen;
        std::set<std::string> included;
        collectIncludes(file, seen, included);
        for (const std::string& header : headersNeededBy(file)) {
            EXPECT_EQ(included.count(header), 1U) << file << " needs <" << header << ">";
            ++used;
        }
    }
    EXPECT_GT(used, 500U);
}

// --- the page that a script writes ---

// The texts between the marks of its template.
std::vector<std::string> textsOfTrust() {
    static const std::regex mark("@[a-z]+\\.[a-z]+@\n");
    const std::string text = repository::read(repository::root() / "scripts/trust.md.in");
    const std::sregex_token_iterator first(text.begin(), text.end(), mark, -1);
    return {first, std::sregex_token_iterator()};
}

TEST(RulesTest, TheTrustPageIsItsTemplateWithATableForEachMark) {
    const std::string page = repository::read(repository::root() / "docs/trust.md");
    const std::vector<std::string> texts = textsOfTrust();
    EXPECT_GT(texts.size(), 10U);
    std::size_t end = 0;
    for (const std::string& text : texts) {
        const std::size_t at = page.find(text, end);
        ASSERT_NE(at, std::string::npos) << "scripts/trust.sh has not been run since this was written:\n"
                                         << text;
        EXPECT_TRUE(end == 0 ? at == 0 : at > end) << "nothing stands before\n" << text;
        end = at + text.size();
    }
    EXPECT_EQ(end, page.size());
    EXPECT_EQ(page.find("\n@"), std::string::npos);
}

}  // namespace
