// Any bytes as the startup configuration: read, and turned into properties.

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

#include "FuzzService.h"
#include "TVLConfigurationFactory.h"
#include "TVLIDOM_Helper.h"
#include "TVLNumber.h"
#include "TestAccess.h"
#include "ZORBadConfigException.h"
#include "ZORPropertyInserter.h"
#include "ZORStartupProperties.h"

using FuzzTarget::require;
using FuzzTarget::requireSame;
using FuzzTarget::untilZero;

namespace {

constexpr const char* kDefaultName = "Default";

bool setUp() {
    FuzzService::begin();
    unsetenv("JAVA_HOME");
    return true;
}

std::string property(const char* name) {
    const char* const value = ZORPropertyInserter::getInstance()->get(name);
    require(value != nullptr, "the property is defined");
    return value;
}

// From behind the first colon after "//" up to the next slash; without a colon all of it.
std::string plainPort(std::string uri) {
    const std::size_t slashes = uri.find("//");
    const std::size_t colon = uri.find(':', slashes == std::string::npos ? 0 : slashes + 2);
    if (colon == std::string::npos) return uri;
    uri.erase(0, colon + 1);
    return uri.substr(0, uri.find('/'));
}

void checkRefusal(const std::string& message) {
    const std::string beginning = "cannot read startup configuration \"";
    require(message.rfind(beginning, 0) == 0, "a refusal names what could not be read");
    const std::size_t words = message.find("\": ", beginning.size());
    require(words != std::string::npos, "a refusal names the file");
    FuzzService::checkRefusal(message.substr(words + 3));
}

void checkMemory() {
    const char* const memory = ZORPropertyInserter::getInstance()->get("dispatcherMaxMemory");
    if (memory == nullptr) return;
    const int whole = TVLNumber::parse(memory);
    requireSame(std::to_string(whole / 2), property("dispatcherMaxMemoryBy2"), "half of the memory");
    requireSame(std::to_string(whole / 4), property("dispatcherMaxMemoryBy4"), "a quarter of the memory");
}

void checkProperties(const ZORStartupProperties& startup) {
    TVLConfigurationFactory& configuration = *TVLConfigurationFactory::getInstance();
    const std::string uri = configuration.getString("internalDispatcher").str();
    requireSame(untilZero(uri), property("dispatcherURI"), "the dispatcher's address is the element's text");
    const std::string port = plainPort(uri);
    requireSame(port, property("dispatcherPort"), "the port is what the address has behind its colon");
    const TVLIDOM_Element instances =
        TVLIDOM_Helper::findFirstElementWithAttribute(startup.m_element, "vrx:instances", "name", "zor");
    const std::string instance =
        TVLIDOM_Helper::findFirstElementWithName(instances, "vrx:instance").getAttribute("name").str();
    const std::string name = instance.empty() ? kDefaultName : instance;
    requireSame(port == "9300" ? name : name + ":" + port, property("serviceName"),
                "the service is named after its instance and its port");
    requireSame("", property("java_vendor"), "without preferences there is no vendor");
    requireSame("\n", property("CRLF"), "a line ends as it should");
    checkMemory();
}

// A temporary folder is made, with all that leads to it: only one right in the working directory may be.
void prepare(ZORStartupProperties& startup) {
    const std::string temp = TVLConfigurationFactory::getInstance()->getString("temp").str();
    const bool isHarmless = FuzzFolder::keepsInside(temp) && temp != "." && temp != "..";
    if (!isHarmless && temp != "../temp") return;
    startup.prepare();
    requireSame(temp, property("temp"), "the temporary folder is the element's text");
    checkProperties(startup);
    std::error_code ignored;
    if (isHarmless && !temp.empty()) std::filesystem::remove(temp, ignored);
}

void run() {
    TestAccess::renewProperties();
    TestAccess::renewConfiguration();
    ZORStartupProperties startup(kDefaultName);
    try {
        const bool found = startup.findElement();
        require(found == !startup.m_element.isNull(), "the element is found or null");
        prepare(startup);
    } catch (const ZORBadConfigException& exception) {
        checkRefusal(exception.getMessage());
    }
    TestAccess::renewConfiguration();  // with it go its documents
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const bool ready = setUp();
    require(ready, "set up");
    FuzzService::logEverythingToNowhere();  // before the descriptors are counted
    const FuzzFolder folder;
    folder.write("configuration/startup.xml", FuzzTarget::textOf(data, size));
    const FuzzTarget::NothingLeftOpen check;
    run();
    return 0;
}
