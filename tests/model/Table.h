// A table of what a system does, read from a text; supervisor.table tells how to read it.
//
// Purpose: rows with their conditions and actions taken apart, found by table and place.
// Ownership: plain values.
// Threads: any, once read.
// Errors: the constructor throws std::runtime_error, with the line, for what it does not understand.
#pragma once

#include <functional>
#include <istream>
#include <map>
#include <string>
#include <vector>

struct Action {
    enum class Verb {
        Log,         // text, at `level`
        Assign,      // `name`, `operation` and `value`
        RunTable,    // `name`
        RunForEach,  // likewise
        Execute,     // `name`: start, stop or ping
        Prepare,     // likewise
        Return,      // `value`
        Sleep,       // `value`
        Wait,        // likewise
        Kill,        // `value`, with the signal `second`
        Phrase,      // anything else: `name`
    };

    Verb verb = Verb::Phrase;
    std::string name{};
    std::string level{};
    std::string operation{};
    std::string value{};
    std::string second{};
};

struct Condition {
    std::string left;
    std::string operation;
    std::string right;
};

struct Row {
    int line = 0;
    std::string at;
    std::string found;
    std::vector<Condition> when{};  // empty or one
    std::vector<Action> actions{};
    std::string next{};
};

struct Table {
    std::string name;
    std::string logger;
    std::vector<Row> rows{};  // never empty; those of one place in the order of the text
};

class Tables {
  public:
    explicit Tables(std::istream& text);

    const Table& table(const std::string& name) const;
    const std::map<std::string, Table>& all() const { return m_tables; }
    // To change them, for a test that wants to see it noticed.
    std::vector<Row>& rowsOf(const std::string& name) { return m_tables.at(name).rows; }

  private:
    void readLine(const std::string& line, int number);
    void readRow(const std::vector<std::string>& cells, int number);

    std::map<std::string, Table> m_tables;
    std::string m_last;  // name of the table that is being read
};
