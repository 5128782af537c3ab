// The argument array of a program to be started.
//
// Purpose: built from "param" elements, among them conditional ones, and handed to the program as it stands.
// Ownership: every non-null element is a heap copy owned by the vector; reset() frees them.
// Threads: one thread at a time.
// Units: none.
// Errors: none. Deliberate: an argument that cannot be copied becomes a null, which ends the list early;
//   see ZORArgVectorTest.AnArgumentThatCannotBeCopiedEndsTheListEarly.
#pragma once

#include <vector>

#include "TVLIDOM_Node.h"

class ZORArgVector : public std::vector<char*> {
  public:
    ZORArgVector() = default;
    ZORArgVector(const ZORArgVector&) = delete;
    ZORArgVector& operator=(const ZORArgVector&) = delete;
    virtual ~ZORArgVector();

    void reset();
    void add(const char* argument);  // null appends a terminator
    void prepare(TVLIDOM_Element element);
    void terminateList();
};
