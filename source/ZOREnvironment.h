// The environment: what the environment file adds to it, what children receive, and where the service is installed.
//
// Purpose: applies ../configuration/zorEnvironmentVars.ini to the process, keeps the variables that the process was
//   started with, which every child is given, and finds the folders around the working directory.
// Ownership: texts that the environment points to are kept for the rest of the process. The kept variables are the
//   process's own, not copied.
// Threads: written by the main thread before others exist, read by any.
// Units: none.
// Errors: a file that is not there is no error; TVLOutOfMemoryError when a line cannot be kept.
#pragma once

#include <string>
#include <vector>

class ZOREnvironment {
  public:
    static void applyFile();
    // The lines of such a file that go to the environment, in their order.
    static std::vector<std::string> entriesOf(const std::string& text);
    // Keeps the variables for children, and lists them at DEBUG. Null is passed over.
    static void keep(char** envp);
    // Stores both folders and makes them properties; false, after a line in the log, when one cannot be told.
    static bool findHome(std::string& installRoot, std::string& binDirectory);
    static char** get() { return m_envp; }

    static char** m_envp;  // null until they are kept
};
