// The rules that the sources themselves follow, where no compiler and no other tool knows them.

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
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
    for (const fs::path& header : filesOf({"source", "platform", "transport"}, {".h"})) {
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
    for (const fs::path& file : filesOf({"source", "platform", "transport", "sample"}, {".cpp", ".h"})) {
        for (const std::string& reason : deliberatelyIn(file)) {
            std::smatch match;
            ++found;
            EXPECT_TRUE(std::regex_search(reason, match, reference) && tests.count(match[1]) == 1)
                << file << ": \"" << reason << "\" names no test that exists";
        }
    }
    EXPECT_GT(found, 20U);
}

// --- includes ---

struct Provision {
    const char* header;
    std::regex names;
};

const std::vector<Provision>& provisions() {
    static const std::vector<Provision> all = {
        {"algorithm",
         std::regex("\\bstd::(all_of|any_of|clamp|copy_if|count|count_if|equal|fill|find|find_if|for_each|"
                    "generate|max|max_element|min|min_element|none_of|remove_if|replace|replace_if|"
                    "reverse|search|sort|transform|unique)\\(")},
        {"array", std::regex("\\bstd::array<")},
        {"atomic", std::regex("\\bstd::atomic")},
        {"cctype", std::regex("\\bstd::(isalnum|isalpha|isdigit|isspace|isxdigit|tolower|toupper)\\(")},
        {"charconv", std::regex("\\bstd::(from_chars|to_chars)\\(")},
        {"chrono", std::regex("\\bstd::chrono::")},
        {"condition_variable", std::regex("\\bstd::condition_variable")},
        {"cstdint", std::regex("\\bstd::u?int(8|16|32|64)_t")},
        {"cstdio", std::regex("\\bstd::(FILE|fclose|fopen|fprintf|fputs|printf|puts|snprintf)\\b")},
        {"cstdlib",
         std::regex("\\bstd::(_Exit|abort|calloc|exit|free|getenv|malloc|strtol|strtoul|system)\\(")},
        {"cstring",
         std::regex("\\bstd::(memchr|memcmp|memcpy|memset|strchr|strcmp|strlen|strncmp|strstr)\\(")},
        {"deque", std::regex("\\bstd::deque<")},
        {"filesystem", std::regex("\\bstd::filesystem")},
        {"fstream", std::regex("\\bstd::(ifstream|ofstream)\\b")},
        {"functional", std::regex("\\bstd::function<")},
        {"iostream", std::regex("\\bstd::(cerr|cin|cout)\\b")},
        {"limits", std::regex("\\bstd::numeric_limits<")},
        {"map", std::regex("\\bstd::(multi)?map<")},
        {"memory", std::regex("\\bstd::(make_shared|make_unique|shared_ptr|unique_ptr|weak_ptr)\\b")},
        {"mutex", std::regex("\\bstd::(call_once|lock_guard|mutex|once_flag|scoped_lock|unique_lock)\\b")},
        {"optional", std::regex("\\bstd::(nullopt|optional)\\b")},
        {"regex", std::regex("\\bstd::(regex|smatch|sregex_iterator)\\b")},
        {"set", std::regex("\\bstd::(multi)?set<")},
        {"sstream", std::regex("\\bstd::[io]?stringstream\\b")},
        {"stdexcept",
         std::regex("\\bstd::(invalid_argument|length_error|logic_error|out_of_range|runtime_error)\\b")},
        {"string", std::regex("\\bstd::(string|to_string)\\b")},
        {"string_view", std::regex("\\bstd::string_view\\b")},
        {"thread", std::regex("\\bstd::(this_thread|thread)\\b")},
        {"variant", std::regex("\\bstd::(get_if|variant|visit)\\b")},
        {"vector", std::regex("\\bstd::vector<")},
    };
    return all;
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

std::string codeOf(const fs::path& file) {
    std::string code;
    for (const std::string& line : repository::split(repository::read(file), "\n"))
        code += codeOf(line) + "\n";
    return code;
}

// Where a quoted name leads: beside the file first, as the compiler looks.
fs::path projectHeader(const fs::path& from, const std::string& name) {
    if (fs::exists(from.parent_path() / name)) return from.parent_path() / name;
    for (const char* const folder :
         {"source", "platform", "transport", "sample", "tests/support", "tests/fuzz"}) {
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
    static const std::regex include("#include ([<\"])([^>\"]+)[>\"].*");
    static std::map<fs::path, std::vector<Include>> known;
    const auto [place, isNew] = known.try_emplace(file);
    std::istringstream lines(isNew ? repository::read(file) : "");
    for (std::string line; std::getline(lines, line);) {
        std::smatch match;
        if (line.starts_with("#include") && std::regex_match(line, match, include))
            place->second.push_back({match[1] == "\"", match[2]});
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
         filesOf({"source", "platform", "transport", "sample", "tests", "bench"}, {".cpp", ".h"})) {
        std::set<fs::path> seen;
        std::set<std::string> included;
        collectIncludes(file, seen, included);
        const std::string code = codeOf(file);
        for (const Provision& provision : provisions()) {
            if (!std::regex_search(code, provision.names)) continue;
            EXPECT_EQ(included.count(provision.header), 1U) << file << " needs <" << provision.header << ">";
            ++used;
        }
    }
    EXPECT_GT(used, 500U);
}

}  // namespace
