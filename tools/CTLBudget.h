// How long the service takes to notice trouble and to mend it, with the documents of an instance.
//
// Purpose: measures, child by child and for the service as a whole, by letting the real supervisor run in virtual time
//   against children that die, refuse, fall silent or freeze at the worst moments. Nothing of the supervisor's rules is
//   known here: what it did is read off the clock.
// Ownership: none; what it runs lives in a machine of its own for as long as of() takes.
// Threads: the main thread; the service's own, which have ended when of() returns.
// Units: milliseconds.
// Errors: none. A preparation that is not usable has no rows; what never happens has no time.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

class CTLPreparation;

struct CTLBudgetRow {
    std::string child;               // empty: the whole service
    std::string what;                // one of the texts in CTLBudget.cpp, the same for every document
    std::optional<std::int64_t> ms;  // none: never
    std::string why;                 // where the time comes from, or why there is none; may be empty
};

class CTLBudget {
  public:
    // The properties and the log of the preparation are used and left as they were; the service object is not touched.
    static std::vector<CTLBudgetRow> of(CTLPreparation& preparation);
};
