// Any bytes as a bootstrap document: parsed, and when they are XML, turned into children and actions.

#include <string>

#include "FuzzTarget.h"
#include "TVLIDOM_Parser.h"
#include "TextStream.h"
#include "ZORBadConfigException.h"
#include "ZORBootstrapService.h"
#include "ZORPropertyInserter.h"

namespace {

bool setUp() {
    TVLIDOM_DOMImplementation::initialize();
    FuzzTarget::logEverythingToNowhere();
    ZORPropertyInserter::getInstance()->add("install_path", "/opt/product");
    ZORPropertyInserter::getInstance()->add("dispatcherPingTimeout", "60");
    return true;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const bool ready = setUp();
    FuzzTarget::require(ready, "set up");
    TextStream stream(FuzzTarget::textOf(data, size));
    TVLIDOM_Parser parser;
    TVLIDOM_Document document;
    if (parser.parse(stream, document) != 1) {
        const std::string& error = parser.getErrorString().str();
        FuzzTarget::require(error.rfind("line ", 0) == 0, "an error string begins with its line");
        FuzzTarget::require(error.find_first_of("\r\n") == std::string::npos, "an error string is one line");
        FuzzTarget::require(document.getDocumentElement().isNull(), "a failure leaves the document alone");
        return 0;
    }
    FuzzTarget::require(!document.getDocumentElement().isNull(), "a document has a root");
    ZORBootstrapService service;
    try {
        service.parseParams(document.getDocumentElement());
    } catch (const ZORBadConfigException&) {
        // An answer like any other.
    }
    return 0;
}
