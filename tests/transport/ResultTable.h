// A table of what was tried and what came of it, for readers.
//
// Purpose: prints each row as one line, and appends it as Markdown to the file that bears the table's name in the
//   folder VBS_TABLES_DIR names, if it does. The folder should be empty before a run: the rows of tests that run
//   as processes of their own gather in one file, in the order in which they end.
// Ownership: a value type.
// Threads: used by one thread at a time; other processes may add to the same table.
// Units: none.
// Errors: throws std::runtime_error when the file cannot be written.
#pragma once

#include <string>
#include <vector>

class ResultTable {
  public:
    ResultTable(const std::string& name, const std::vector<std::string>& columns);
    void add(const std::vector<std::string>& cells) const;
    // A row as a page has it, without the line's end.
    static std::string markdown(std::vector<std::string> cells);

  private:
    std::string m_name;
    std::vector<std::string> m_columns;
};
