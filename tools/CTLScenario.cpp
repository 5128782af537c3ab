#include "CTLScenario.h"

#include <algorithm>
#include <charconv>
#include <map>
#include <stdexcept>
#include <utility>

#include "CTLError.h"

namespace {

using Step = CTLScenarioStep;

constexpr std::size_t kMostBytes = std::size_t{1} << 20;
constexpr std::size_t kMostLines = 10000;

// What is wrong with a line.
struct BadLine : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct Word {
    std::string text;
    bool isQuoted = false;
};

// ---- Words ----

Word quotedWord(const std::string& line, std::size_t& at) {
    Word word{{}, true};
    for (++at; at < line.size() && line[at] != '"'; ++at) {
        if (line[at] != '\\' || at + 1 == line.size()) {
            word.text += line[at];
            continue;
        }
        const char escaped = line[++at];
        if (escaped != 'n' && escaped != '"' && escaped != '\\')
            throw BadLine("unknown escape in the quotes");
        word.text += escaped == 'n' ? '\n' : escaped;
    }
    if (at++ == line.size()) throw BadLine("the quote is not closed");
    return word;
}

std::vector<Word> wordsOf(const std::string& line) {
    constexpr const char* kBlanks = " \t\r";
    std::vector<Word> words;
    std::size_t at = line.find_first_not_of(kBlanks);
    while (at < line.size() && line[at] != '#') {
        if (line[at] == '"') {
            words.push_back(quotedWord(line, at));
        } else {
            const std::size_t end = std::min(line.find_first_of(kBlanks, at), line.size());
            words.push_back({line.substr(at, end - at)});
            at = end;
        }
        at = line.find_first_not_of(kBlanks, at);
    }
    return words;
}

// The words of a line, one after the other.
class Words {
  public:
    explicit Words(std::vector<Word> words) : m_words(std::move(words)) {}

    bool isEmpty() const { return m_at == m_words.size(); }
    bool isQuoted() const { return !isEmpty() && m_words[m_at].isQuoted; }
    std::string next(const char* what) {
        if (isEmpty()) throw BadLine(std::string("ends where ") + what + " is expected");
        return m_words[m_at++].text;
    }
    bool takeIf(const char* word) {
        if (isEmpty() || isQuoted() || m_words[m_at].text != word) return false;
        ++m_at;
        return true;
    }
    void expect(const char* word) {
        if (takeIf(word)) return;
        throw BadLine(isEmpty() ? std::string("ends where \"") + word + "\" is expected"
                                : "\"" + m_words[m_at].text + "\" stands where \"" + word + "\" is expected");
    }
    std::int64_t time() {
        const std::string text = next("a time");
        const auto ms = CTLScenario::timeOf(text);
        if (!ms) throw BadLine("\"" + text + "\" is no time: HH:MM or HH:MM:SS, 366 days at most");
        return *ms;
    }
    std::int64_t duration() {
        std::string number = next("a duration");
        const std::size_t digits = std::min(number.find_first_not_of("0123456789"), number.size());
        std::string unit = number.substr(digits);
        number.resize(digits);
        if (unit.empty()) unit = next("s, min, h or d");
        const auto ms = CTLScenario::durationOf(number, unit);
        if (!ms) throw BadLine("\"" + number + " " + unit + "\" is no duration: a number and s, min, h or d");
        return *ms;
    }

  private:
    std::vector<Word> m_words;
    std::size_t m_at = 0;
};

// ---- Steps ----

void readMood(Words& words, Step& step) {
    static const std::map<std::string, Step::Kind> kinds{{"silent", Step::Kind::Silent},
                                                         {"refuses", Step::Kind::Refuses},
                                                         {"freezes", Step::Kind::Freezes},
                                                         {"answers", Step::Kind::Answers},
                                                         {"slow", Step::Kind::Slow}};
    const std::string verb = words.next("what happens to it");
    const auto kind = kinds.find(verb);
    if (kind == kinds.end()) {
        throw BadLine(
            "\"" + verb +
            "\" does not happen to a child: dies, silent, refuses, freezes, answers, slow, listens, "
            "stops, ignores");
    }
    step.kind = kind->second;
    if (step.kind == Step::Kind::Answers && words.isQuoted()) step.text = words.next("an answer");
    if (step.kind == Step::Kind::Slow) {
        words.expect("by");
        step.ms = words.duration();
    }
    if (words.takeIf("for")) {
        step.untilMs = step.atMs + words.duration();
    } else if (words.takeIf("until")) {
        step.untilMs = words.time();
    }
    if (step.untilMs && *step.untilMs <= step.atMs) throw BadLine("ends before it begins");
}

void readChild(Words& words, Step& step) {
    if (words.takeIf("dies")) {
        step.kind = Step::Kind::Dies;
    } else if (words.takeIf("listens")) {
        step.kind = Step::Kind::ListensAfter;
        words.expect("after");
        step.ms = words.duration();
    } else if (words.takeIf("stops")) {
        step.kind = Step::Kind::StopsIn;
        words.expect("in");
        step.ms = words.duration();
    } else if (words.takeIf("ignores")) {
        words.expect("stops");
        step.kind = Step::Kind::StopsIn;
    } else {
        readMood(words, step);
    }
}

void readService(Words& words, Step& step) {
    step.kind = words.takeIf("starts") ? Step::Kind::ServiceStarts : Step::Kind::ServiceStops;
    if (step.kind == Step::Kind::ServiceStops) words.expect("stops");
}

Step stepOf(Words words, std::size_t line) {
    Step step;
    step.line = line;
    words.expect("at");
    step.atMs = words.time();
    const bool isChild = words.isQuoted();
    const std::string who = words.next("a child or \"service\"");
    if (isChild || who != "service") {
        step.child = who;
        readChild(words, step);
    } else {
        readService(words, step);
    }
    if (!words.isEmpty()) throw BadLine("\"" + words.next("nothing") + "\" is one word too many");
    return step;
}

std::optional<std::int64_t> numberOf(const std::string& text) {
    std::int64_t number = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, number);
    const bool isNumber = error == std::errc() && rest == end && number >= 0;
    return isNumber ? std::optional(number) : std::nullopt;
}

}  // namespace

std::optional<std::int64_t> CTLScenario::durationOf(const std::string& number, const std::string& unit) {
    static const std::map<std::string, std::int64_t> units{
        {"s", 1000}, {"sec", 1000}, {"min", 60000}, {"h", 3600000}, {"d", 24 * std::int64_t{3600000}}};
    const auto count = numberOf(number);
    const auto each = units.find(unit);
    if (!count || each == units.end() || *count > kMostMs / each->second) return std::nullopt;
    return *count * each->second;
}

std::optional<std::int64_t> CTLScenario::timeOf(const std::string& text) {
    std::vector<std::int64_t> parts;
    for (std::size_t at = 0; at <= text.size();) {
        const std::size_t colon = std::min(text.find(':', at), text.size());
        const auto part = numberOf(text.substr(at, colon - at));
        if (!part || colon - at > 4 || (!parts.empty() && (*part > 59 || colon - at != 2)))
            return std::nullopt;
        parts.push_back(*part);
        at = colon + 1;
    }
    if (parts.size() < 2 || parts.size() > 3) return std::nullopt;
    const std::int64_t ms = ((parts[0] * 60 + parts[1]) * 60 + (parts.size() == 3 ? parts[2] : 0)) * 1000;
    return ms <= kMostMs ? std::optional(ms) : std::nullopt;
}

void CTLScenario::complain(std::size_t line, const std::string& what) {
    m_complaints += (m_complaints.empty() ? "" : "\n") + m_name + ":" + std::to_string(line) + ": " + what;
}

void CTLScenario::add(const Step& step) {
    if (step.kind == Step::Kind::ServiceStarts) {
        if (std::exchange(m_startIsGiven, true)) complain(step.line, "the service starts twice");
        m_startMs = step.atMs;
    } else if (step.kind == Step::Kind::ServiceStops) {
        if (m_stopMs) complain(step.line, "the service stops twice");
        m_stopMs = step.atMs;
    } else {
        m_steps.push_back(step);
    }
}

void CTLScenario::checkOrder() {
    std::stable_sort(m_steps.begin(), m_steps.end(),
                     [](const Step& left, const Step& right) { return left.atMs < right.atMs; });
    for (const Step& step : m_steps) {
        if (step.atMs < m_startMs) complain(step.line, "comes before the service starts");
        if (m_stopMs && step.atMs > *m_stopMs) complain(step.line, "comes after the service stops");
    }
    if (m_stopMs && *m_stopMs < m_startMs) m_complaints += m_name + ": the service stops before it starts";
}

CTLScenario CTLScenario::read(std::istream& text, const std::string& name) {
    CTLScenario scenario;
    scenario.m_name = name;
    std::size_t number = 0;
    std::size_t bytes = 0;
    for (std::string line; std::getline(text, line);) {
        bytes += line.size();
        if (++number > kMostLines || bytes > kMostBytes) throw CTLError(kBadScenario, name + ": is too long");
        try {
            Words words(wordsOf(line));
            if (!words.isEmpty()) scenario.add(stepOf(std::move(words), number));
        } catch (const BadLine& bad) {
            scenario.complain(number, bad.what());
        }
    }
    if (text.bad()) throw CTLError(CTLError::kFailed, name + ": cannot be read");
    scenario.checkOrder();
    if (!scenario.m_complaints.empty()) throw CTLError(kBadScenario, scenario.m_complaints);
    return scenario;
}

std::int64_t CTLScenario::endMs() const {
    std::int64_t endMs = m_stopMs.value_or(m_startMs);
    for (const Step& step : m_steps)
        endMs = std::max(endMs, step.untilMs.value_or(step.atMs));
    return endMs;
}
