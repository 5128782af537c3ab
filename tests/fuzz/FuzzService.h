// What the targets of the service share: its log, its documents, and an installation for their files.
//
// Purpose: a document parsed under the promises that every one keeps, accepted or not; and FuzzFolder, an install tree
//   of the process's own in which a target works.
// Ownership: the folder is removed when the process ends.
// Threads: as the targets, one thread.
// Units: none.
// Errors: broken promises end the process.
#pragma once

#include <string>

#include "FuzzTarget.h"
#include "TVLIDOM_Document.h"
#include "TestKit.h"

namespace FuzzService {

// Starts the document model, once.
void begin();

// Every line is composed, and written to nowhere.
void logEverythingToNowhere();

// Promises that a refused document is told of in one line that begins with a place.
void checkRefusal(const std::string& error);

// False when the bytes are no acceptable document.
bool parse(const std::string& bytes, TVLIDOM_Document& document);

}  // namespace FuzzService

// The install tree, with its bin/ as the working directory while this exists.
class FuzzFolder {
  public:
    FuzzFolder();

    std::string path(const std::string& relative) const { return tree().path(relative); }
    void write(const std::string& relative, const std::string& content) const;
    // Whether nobody but this process's folder is touched by what opens or makes that path: it names something
    // right in bin/ or logs/.
    static bool keepsInside(const std::string& path);

  private:
    static const InstallFolder& tree();

    FuzzTarget::Visit m_visit;
};
