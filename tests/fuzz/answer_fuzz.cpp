// Any bytes as the answer of a child, against the rules written down plainly. The input's first byte is the
// number of bytes that the action reads, the second chooses the markers that it knows.

#include <algorithm>
#include <string>

#include "FuzzService.h"
#include "ScriptedSek.h"
#include "TVLIDOM_Parser.h"
#include "TextStream.h"
#include "VirtualOs.h"
#include "ZORCryptoHelper.h"
#include "ZORSockSendAction.h"

namespace {

constexpr const char* kUri = "https://localhost:9300/dispatch";
constexpr const char* kOK = "OK";
constexpr const char* kFatal = "FATAL";
constexpr const char* kRetry = "RETRY";

struct Markers {
    std::string ok;
    std::string fatal;
    std::string retry;
};

// A marker that is chosen and could fit into the answer.
std::string marker(const char* text, bool chosen, int responseSize) {
    const std::string value = text;
    return chosen && static_cast<int>(value.size()) <= responseSize ? value : "";
}

bool holds(const std::string& answer, const std::string& marker) {
    return !marker.empty() && answer.find(marker) != std::string::npos;
}

int expectedResult(std::string answer, int responseSize, const Markers& markers) {
    if (responseSize == 0) return 1;
    answer.resize(std::min(answer.size(), static_cast<std::size_t>(responseSize)));
    const int received = static_cast<int>(answer.size());
    if (markers.ok.empty() || received < static_cast<int>(markers.ok.size())) return received;
    answer.resize(std::min(answer.find('\0'), answer.size()));
    if (holds(answer, markers.ok)) return received;
    if (holds(answer, markers.fatal)) return ZOR_FATAL_ANSWER;
    return holds(answer, markers.retry) ? ZOR_RETRY_ANSWER : ZOR_NO_SUCCESS;
}

std::string attribute(const char* name, const char* value, bool chosen) {
    return chosen ? std::string(" ") + name + "='" + value + "'" : "";
}

bool setUp() {
    TVLIDOM_DOMImplementation::initialize();
    FuzzService::logEverythingToNowhere();
    return ZORCryptoHelper::InitializeCrypto() == 1;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const bool ready = setUp();
    FuzzTarget::require(ready, "set up");
    if (size < 2) return 0;
    const int responseSize = data[0];
    const bool ok = (data[1] & 1) != 0;
    const bool fatal = (data[1] & 2) != 0;
    const bool retry = (data[1] & 4) != 0;
    TextStream stream("<s URI='" + std::string(kUri) + "' commandString='PING' responseSize='" +
                      std::to_string(responseSize) + "'" + attribute("responseOK", kOK, ok) +
                      attribute("responseFatal", kFatal, fatal) + attribute("responseRetry", kRetry, retry) +
                      "/>");
    TVLIDOM_Parser parser;
    TVLIDOM_Document document;
    FuzzTarget::require(parser.parse(stream, document) == 1, "the action's element is well-formed");

    VirtualOs os;  // the pause before a connection takes no time
    ScriptedSek::instance().reset();
    const std::string answer = FuzzTarget::textOf(data + 2, size - 2);
    ScriptedSek::instance().peer(kUri).answer = answer;
    ZORSockSendAction action;
    action.prepare(document.getDocumentElement());
    const Markers markers{marker(kOK, ok, responseSize), marker(kFatal, fatal, responseSize),
                          marker(kRetry, retry, responseSize)};
    FuzzTarget::require(action.execute() == expectedResult(answer, responseSize, markers),
                        "an answer is classified as the rules say");
    FuzzTarget::require(ScriptedSek::instance().openHandles() == 0, "every handle is closed");
    FuzzTarget::require(ScriptedSek::instance().unfreedDetails() == 0, "every detail text is freed");
    return 0;
}
