#include "CTLMessages.h"

#include <algorithm>
#include <cctype>
#include <regex>
#include <set>
#include <utility>

#include "CTLGuide.h"
#include "CTLLogLine.h"

namespace {

constexpr std::string_view kEllipsis = "…";
constexpr std::string_view kChapter = "\n## What each message means\n";
constexpr std::string_view kReasonChapter = "\n## What the messages mean\n";
constexpr std::size_t kWord = 3;  // shorter words say little

std::vector<std::string> split(std::string_view text, std::string_view separator) {
    std::vector<std::string> parts;
    for (std::size_t at = 0; at <= text.size();) {
        const std::size_t end = std::min(text.find(separator, at), text.size());
        parts.emplace_back(text.substr(at, end - at));
        at = end + separator.size();
    }
    return parts;
}

// What is between two of its headings of that level.
std::string_view chapterOf(std::string_view page, std::string_view heading) {
    const std::size_t begin = page.find(heading);
    if (begin == std::string_view::npos) return {};
    page.remove_prefix(begin + heading.size());
    return page.substr(0, page.find("\n## "));
}

// The cells of a row of a table; none of the lines that are no row, or only draw one.
std::vector<std::string> cellsOf(const std::string& line) {
    if (!line.starts_with("| ") || !line.ends_with("|")) return {};
    std::vector<std::string> cells = split(std::string_view(line).substr(1, line.size() - 2), " |");
    for (std::string& cell : cells)
        cell = CTLMessages::collapsed(cell);
    return cells;
}

// Without the marks of the page.
std::string plain(const std::string& text) {
    static const std::regex link(R"(\[([^\]]*)\]\([^)]*\))");
    static const std::regex marks(R"([`*])");
    return std::regex_replace(std::regex_replace(text, link, "$1"), marks, "");
}

// What stands between a pair of the marks of code.
std::vector<std::string> codeIn(const std::string& text) {
    std::vector<std::string> found;
    const std::vector<std::string> parts = split(text, "`");
    for (std::size_t i = 1; i + 1 < parts.size(); i += 2)
        found.push_back(parts[i]);
    return found;
}

// "`one`, `two` *value* `three`" has the texts "one", and "two" and "three" in that order.
CTLReason reasonOf(const std::vector<std::string>& cells) {
    static const std::regex between("`,? and `|`, `");
    CTLReason reason{{}, plain(cells[1]), cells.size() > 2 ? plain(cells[2]) : ""};
    for (const std::string& text : split(std::regex_replace(cells[0], between, "`\n`"), "\n")) {
        std::vector<std::string> pieces;
        for (const std::string& code : codeIn(text)) {
            for (const std::string& piece : split(code, kEllipsis)) {
                if (!CTLMessages::collapsed(piece).empty()) pieces.push_back(CTLMessages::collapsed(piece));
            }
        }
        if (!pieces.empty()) reason.texts.push_back(std::move(pieces));
    }
    return reason;
}

struct Asked {
    std::string level;   // empty: not told
    std::string logger;  // likewise
    std::string text;
};

// A line of the log, a line of the command "log", or a message alone.
Asked askedFor(const std::string& text) {
    static const std::regex shown(
        R"([0-9]{4}-[0-9]{2}-[0-9]{2} [0-9:]{8} ([A-Z]{4,5}) +(?:\[[^\]]*\] )?([A-Za-z]+) ([^]*))");
    CTLLogLine line;
    std::smatch match;
    if (CTLLogLine::parse(text, line)) return {line.level, line.logger, line.text};
    if (std::regex_match(text, match, shown)) return {match[1], match[2], match[3]};
    return {{}, {}, text};
}

bool maySay(const CTLMessage& message, const Asked& asked) {
    const auto& loggers = message.loggers;
    return (asked.level.empty() || asked.level == message.level) &&
           (asked.logger.empty() || std::find(loggers.begin(), loggers.end(), asked.logger) != loggers.end());
}

// Of several messages those whose own words are most of the text.
std::vector<const CTLMessage*> mostOwn(std::vector<const CTLMessage*> messages) {
    std::size_t most = 0;
    for (const CTLMessage* const each : messages)
        most = std::max(most, each->pattern.ownLetters());
    std::erase_if(messages, [&](const CTLMessage* each) { return each->pattern.ownLetters() < most; });
    return messages;
}

std::set<std::string> wordsOf(const std::string& text) {
    std::set<std::string> words;
    std::string word;
    for (const char c : text + " ") {
        const auto letter = static_cast<unsigned char>(c);
        if (std::isalnum(letter) != 0) {
            word += static_cast<char>(std::tolower(letter));
        } else {
            if (word.size() >= kWord) words.insert(word);
            word.clear();
        }
    }
    return words;
}

std::size_t inCommon(const std::set<std::string>& some, const std::set<std::string>& others) {
    return static_cast<std::size_t>(
        std::count_if(some.begin(), some.end(), [&](const auto& word) { return others.count(word) != 0; }));
}

}  // namespace

std::string CTLReason::foundIn(std::string_view text) const {
    for (const std::vector<std::string>& pieces : texts) {
        std::size_t at = 0;
        std::string words;
        for (const std::string& piece : pieces) {
            at = text.find(piece, at);
            if (at == std::string_view::npos) break;
            at += piece.size();
            words += (words.empty() ? "" : " … ") + piece;
        }
        if (at != std::string_view::npos) return words;
    }
    return {};
}

CTLMessages::CTLMessages() {
    const std::string_view chapter = chapterOf(CTLGuide::operation, kChapter);
    readMessages(chapter, false);
    readMessages(CTLGuide::debug_messages, true);
    readReasons(chapterOf(CTLGuide::transport, kReasonChapter));
    readReasons(chapter);
}

void CTLMessages::readMessages(std::string_view page, bool isDebug) {
    static const std::regex level("FATAL|ERROR|WARN|INFO|DEBUG");
    std::vector<std::string> loggers;
    for (const std::string& line : split(page, "\n")) {
        if (line.starts_with("##")) loggers = codeIn(line);
        std::vector<std::string> cells = cellsOf(line);
        if (isDebug && !cells.empty()) cells.insert(cells.begin(), "DEBUG");
        if (cells.size() != 3 || !std::regex_match(cells[0], level)) continue;
        const std::vector<std::string> text = codeIn(cells[1]);
        if (text.size() != 1) continue;
        const std::string printed = collapsed(text.front());
        m_messages.push_back(
            {loggers, cells[0], printed, plain(cells[2]), CTLTextPattern::ofPrinted(printed)});
    }
}

// The first cell of such a row is made of texts; it is in the tables that begin with "text" or "reason".
void CTLMessages::readReasons(std::string_view page) {
    bool isTheirs = false;
    for (const std::string& line : split(page, "\n")) {
        const std::vector<std::string> cells = cellsOf(line);
        if (cells.size() < 2) {
            isTheirs = isTheirs && line.starts_with("|-");
        } else if (cells[0] == "text" || cells[0] == "reason") {
            isTheirs = true;
        } else if (isTheirs) {
            m_reasons.push_back(reasonOf(cells));
        }
    }
}

std::string CTLMessages::collapsed(std::string_view text) {
    std::string words;
    for (const char c : text) {
        const bool isBlank = std::isspace(static_cast<unsigned char>(c)) != 0;
        if (isBlank && (words.empty() || words.back() == ' ')) continue;
        words += isBlank ? ' ' : c;
    }
    if (!words.empty() && words.back() == ' ') words.pop_back();
    return words;
}

std::vector<const CTLMessage*> CTLMessages::find(const std::string& text) const {
    const Asked asked = askedFor(text);
    const std::string whole = collapsed(asked.text);
    const std::string first = collapsed(asked.text.substr(0, asked.text.find('\n')));
    std::vector<const CTLMessage*> same;
    std::vector<const CTLMessage*> holding;
    for (const CTLMessage& each : m_messages) {
        if (whole.empty() || !maySay(each, asked)) continue;
        if (each.pattern.matches(whole) || each.pattern.matches(first)) same.push_back(&each);
        if (each.text.find(whole) != std::string::npos) holding.push_back(&each);
    }
    if (!same.empty()) return mostOwn(std::move(same));
    return holding.size() == 1 ? holding : same;
}

std::vector<const CTLReason*> CTLMessages::reasonsIn(const std::string& text) const {
    const std::string words = collapsed(text);
    std::vector<std::pair<std::string, const CTLReason*>> found;
    for (const CTLReason& each : m_reasons) {
        const std::string reason = each.foundIn(words);
        if (!reason.empty()) found.emplace_back(reason, &each);
    }
    // Those that say most come first; what is a part of another one says less than that.
    std::stable_sort(found.begin(), found.end(),
                     [](const auto& a, const auto& b) { return a.first.size() > b.first.size(); });
    std::vector<const CTLReason*> reasons;
    for (const auto& [reason, row] : found) {
        const bool isPart = std::any_of(found.begin(), found.end(), [&, &words = reason](const auto& other) {
            return other.first != words && other.first.find(words) != std::string::npos;
        });
        if (!isPart) reasons.push_back(row);
    }
    return reasons;
}

std::vector<const CTLMessage*> CTLMessages::nearest(const std::string& text, std::size_t most) const {
    const std::set<std::string> asked = wordsOf(askedFor(text).text);
    std::vector<std::pair<double, const CTLMessage*>> rated;
    for (const CTLMessage& each : m_messages) {
        const std::set<std::string> words = wordsOf(each.text);
        const std::size_t common = inCommon(asked, words);
        const std::size_t different = asked.size() + words.size() - common;
        if (common > 0)
            rated.emplace_back(static_cast<double>(common) / static_cast<double>(different), &each);
    }
    std::stable_sort(rated.begin(), rated.end(),
                     [](const auto& a, const auto& b) { return a.first > b.first; });
    std::vector<const CTLMessage*> best;
    for (const auto& [rate, message] : rated) {
        if (best.size() < most) best.push_back(message);
    }
    return best;
}
