// Notes which libraries are loaded, and can load another in their place.
//
// Purpose: what the code under test asks of the dynamic loader.
// Ownership, threads: as FailingOs.
// Units: none.
// Errors: as FailingOs.
#pragma once

#include <string>
#include <vector>

#include "FailingOs.h"

class NotedLoads : public FailingOs {
  public:
    struct Load {
        std::string file;
        int mode;
    };

    void loadInstead(const std::string& file) { m_instead = file; }
    const std::vector<Load>& loads() const { return m_loads; }

    void* dlopen(const char* file, int mode) override {
        m_loads.push_back({file, mode});
        return FailingOs::dlopen(m_instead.empty() ? file : m_instead.c_str(), mode);
    }

  private:
    std::string m_instead;
    std::vector<Load> m_loads;
};
