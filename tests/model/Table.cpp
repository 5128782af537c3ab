#include "Table.h"

#include <regex>
#include <sstream>
#include <stdexcept>

namespace {

std::string trimmed(const std::string& text) {
    const std::size_t from = text.find_first_not_of(' ');
    if (from == std::string::npos) return "";
    return text.substr(from, text.find_last_not_of(' ') - from + 1);
}

std::runtime_error wrong(int line, const std::string& what) {
    return std::runtime_error("line " + std::to_string(line) + ": " + what);
}

std::vector<std::string> cellsOf(const std::string& line) {
    std::vector<std::string> cells;
    std::istringstream text(line);
    for (std::string cell; std::getline(text, cell, '|');)
        cells.push_back(trimmed(cell));
    return cells;
}

std::string withoutEscapes(std::string text) {
    for (std::size_t at = 0; (at = text.find("\\n", at)) != std::string::npos;)
        text.replace(at, 2, "\n");
    return text;
}

// The verbs that are told by their form; a form without one makes a phrase of the whole.
Action actionOf(const std::string& text) {
    using Verb = Action::Verb;
    static const std::regex log(R"re((DEBUG|INFO|WARN|ERROR|FATAL) "(.*)")re");
    static const std::regex assign(R"((\w+) (=|\+=|-=) (-?\w+))");
    static const std::regex verb(R"((each child: run|run|execute|prepare|return|sleep) (.+))");
    static const std::regex wait(R"(wait (\w+))");
    static const std::regex kill(R"(kill (\w+) (\w+))");
    static const std::map<std::string, Verb> verbs{{"each child: run", Verb::RunForEach},
                                                   {"run", Verb::RunTable},
                                                   {"execute", Verb::Execute},
                                                   {"prepare", Verb::Prepare},
                                                   {"return", Verb::Return},
                                                   {"sleep", Verb::Sleep}};
    std::smatch part;
    if (std::regex_match(text, part, log)) return {Verb::Log, withoutEscapes(part[2]), part[1], {}, {}, {}};
    if (std::regex_match(text, part, assign)) return {Verb::Assign, part[1], {}, part[2], part[3], {}};
    if (std::regex_match(text, part, verb)) return {verbs.at(part[1]), part[2], {}, {}, part[2], {}};
    if (std::regex_match(text, part, wait)) return {Verb::Wait, {}, {}, {}, part[1], {}};
    if (std::regex_match(text, part, kill)) return {Verb::Kill, {}, {}, {}, part[1], part[2]};
    return {Verb::Phrase, text, {}, {}, {}, {}};
}

std::vector<Condition> conditionsOf(const std::string& text, int line) {
    static const std::regex comparison(R"((\w+) (==|!=|<|<=|>|>=) (-?\w+))");
    if (text.empty()) return {};
    std::smatch part;
    if (!std::regex_match(text, part, comparison)) throw wrong(line, "no condition: " + text);
    return {{part[1], part[2], part[3]}};
}

}  // namespace

Tables::Tables(std::istream& text) {
    std::string line;
    for (int number = 1; std::getline(text, line); ++number)
        readLine(line, number);
}

void Tables::readLine(const std::string& line, int number) {
    static const std::regex head(R"(table ([\w ]+), (\w+))");
    std::smatch part;
    if (line.empty() || line.front() == '#') return;
    if (std::regex_match(line, part, head)) {
        m_last = part[1];
        if (!m_tables.emplace(m_last, Table{m_last, part[2], {}}).second) {
            throw wrong(number, "a second table of that name");
        }
        return;
    }
    const std::vector<std::string> cells = cellsOf(line);
    if (m_last.empty() || cells.size() < 4) throw wrong(number, "neither a table nor a row");
    readRow(cells, number);
}

// A row without a place goes on with the one before.
void Tables::readRow(const std::vector<std::string>& cells, int number) {
    std::vector<Row>& rows = m_tables.at(m_last).rows;
    if (!cells[0].empty()) {
        if (!rows.empty() && rows.back().next.empty()) throw wrong(number, "the row before leads nowhere");
        rows.push_back({number, cells[0], cells[1], conditionsOf(cells[2], number), {}, {}});
    }
    if (rows.empty() || (cells[0].empty() && !rows.back().next.empty()))
        throw wrong(number, "part of no row");
    if (!cells[3].empty()) rows.back().actions.push_back(actionOf(cells[3]));
    if (cells.size() > 4) rows.back().next = cells[4];
}

const Table& Tables::table(const std::string& name) const {
    const auto found = m_tables.find(name);
    if (found == m_tables.end()) throw std::runtime_error("no table \"" + name + '"');
    return found->second;
}
