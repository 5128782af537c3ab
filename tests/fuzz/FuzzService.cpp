#include "FuzzService.h"

#include "TVLIDOM_Parser.h"
#include "TextStream.h"
#include "ZORLogger.h"

using FuzzTarget::require;

void FuzzService::begin() {
    static const bool ready = [] {
        TVLIDOM_DOMImplementation::initialize();
        return true;
    }();
    require(ready, "the document model is up");
}

void FuzzService::logEverythingToNowhere() {
    ZORLoggerFactory::getInstance()->simplePrepare(ZOR_DEBUG, "/dev/null");
}

void FuzzService::checkRefusal(const std::string& error) {
    require(error.rfind("line ", 0) == 0, "an error string begins with its line");
    require(error.find(", column ") != std::string::npos, "an error string has a column");
    require(error.find_first_of("\r\n") == std::string::npos, "an error string is one line");
}

bool FuzzService::parse(const std::string& bytes, TVLIDOM_Document& document) {
    TextStream stream(bytes);
    TVLIDOM_Parser parser;
    if (parser.parse(stream, document) == 1) {
        require(!document.getDocumentElement().isNull(), "a document has a root");
        return true;
    }
    checkRefusal(parser.getErrorString().str());
    require(document.getDocumentElement().isNull(), "a failure leaves the document alone");
    return false;
}

FuzzFolder::FuzzFolder() : m_visit(tree().path("bin")) {}

void FuzzFolder::write(const std::string& relative, const std::string& content) const {
    tree().write(relative, content);
}

bool FuzzFolder::keepsInside(const std::string& path) {
    const std::string logs = tree().path("logs") + "/";
    const std::string name = path.rfind(logs, 0) == 0 ? path.substr(logs.size()) : path;
    return name.find('/') == std::string::npos;
}

// Made once; the working directory that it takes over with it is given back.
const InstallFolder& FuzzFolder::tree() {
    static const InstallFolder folder = [] {
        const FuzzTarget::Visit here(".");
        return InstallFolder();
    }();
    return folder;
}
