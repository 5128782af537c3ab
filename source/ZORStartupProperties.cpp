#include "ZORStartupProperties.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <optional>

#include "TVLByteBuffer.h"
#include "TVLConfigurationFactory.h"
#include "TVLFile.h"
#include "TVLFmDir.h"
#include "TVLIDOM_Helper.h"
#include "TVLNumber.h"
#include "TVLOs.h"
#include "ZORBadConfigException.h"
#include "ZORHelpers.h"
#include "ZORLogger.h"
#include "ZORPropertyInserter.h"

namespace {

// What these classes do for the service is told under its name.
ZORLogger* const logger = ZORLoggerFactory::getInstance()->getLogger("ZORBootstrapService");

constexpr const char* kDefaultPort = "9300";

// A longer line of the Java preferences counts as several.
constexpr std::size_t kLongestPreference = 4095;

void setProperty(const char* name, const char* value) {
    ZORPropertyInserter::getInstance()->add(name, value);
}

// The port as the service has always cut it out. Deliberate: without a colon it is the whole text; see
// StartupPropertiesTest.AUriWithoutAPortIsItsOwnPort.
std::string portOf(const std::string& uri) {
    const std::size_t slashes = uri.find("//");
    const std::size_t colon = uri.find(':', slashes == std::string::npos ? 0 : slashes + 2);
    const std::size_t end = uri.find('/', colon);
    return uri.substr(colon + 1, end - colon - 1);
}

struct Parameter {
    const char* name;
    const char* type;
};
constexpr std::array kParameters{Parameter{"dispatcherStopWaitTime", "xsd:unsignedShort"},
                                 Parameter{"dispatcherPingTimeout", "xsd:unsignedShort"},
                                 Parameter{"dispatcherMaxMemory", "xsd:unsignedInt"},
                                 Parameter{"shutdownPort", "xsd:unsignedShort"}};

// Java home and vendor as another component of the product has noted them.
struct JavaPreferences {
    std::string home;
    std::string vendor;
};

// `from` to the end of the line, without its last `dropped` bytes.
std::string restOfLine(const std::string& line, std::size_t from, std::size_t dropped) {
    return line.size() < from + dropped ? std::string() : line.substr(from, line.size() - from - dropped);
}

JavaPreferences readJavaPreferences(const std::string& text) {
    JavaPreferences preferences;
    for (std::size_t at = 0; at < text.size();) {
        std::string line = ZORHelpers::nextLine(text, at, kLongestPreference);
        // To its first zero byte, as far as a text goes.
        line.resize(std::min(line.find('\0'), line.size()));
        if (line.find("java_home=") != std::string::npos) {
            // Deliberate: the last byte goes, line feed or not; see
            // JavaVendorTest.AHomeWithoutALineFeedLosesItsLastCharacter.
            preferences.home = restOfLine(line, 10, 1);
        } else if (line.find("java_vendor=") != std::string::npos) {
            preferences.vendor = restOfLine(line, 12, 0);
        }
    }
    return preferences;
}

const char* knownVendor(const std::string& vendor) {
    if (vendor.find("Sun") != std::string::npos) return "Sun";
    if (vendor.find("Orv") != std::string::npos) return "Orv";
    return "";
}

}  // namespace

bool ZORStartupProperties::findElement() {
    try {
        m_element = TVLConfigurationFactory::getInstance()->getElement("ZOR");
    } catch (const TVLConfigurationException& exception) {
        throw ZORBadConfigException(exception.getMessage());
    }
    if (!m_element.isNull()) return true;
    logger->log(ZOR_ERROR, "failed to find ZOR element in bootstrap config (via CFGAPI)");
    return false;
}

bool ZORStartupProperties::read(I18NString& value, const char* name, const char* type) const {
    const TVLIDOM_Element parameter =
        TVLIDOM_Helper::findFirstElementWithAttribute(m_element, "vrx:parameter", "name", name);
    if (parameter.isNull()) {
        TVLByteBuffer text(256, 256);
        text.printf("Failed to find parameter \"%s\" in startup config ZOR element.", name);
        logger->log(ZOR_WARN, "%s", text.str());
        return false;
    }
    const TVLIDOM_Element typed =
        TVLIDOM_Helper::findFirstElementWithAttribute(parameter, "vrx:value", "xsi:type", type);
    if (typed.isNull()) {
        logger->log(ZOR_WARN, "Failed to find value of type \"%s\" for parameter named \"%s\".", type, name);
        return false;
    }
    // Deliberate: a value that does not begin with text is no value and worth no message; see
    // StartupPropertiesTest.AValueThatBeginsWithACommentIsNoneAndWorthNoMessage.
    const TVLIDOM_Node first = typed.getFirstChild();
    if (first.getNodeType() != TVLIDOM_Node::TEXT_NODE) return false;
    value = first.getNodeValue();
    return true;
}

void ZORStartupProperties::prepare() {
    setProperty("CRLF", "\n");
    if (const char* const javaHome = TVLOs::current().getenv("JAVA_HOME"); javaHome != nullptr) {
        setProperty("java_home", javaHome);
    }
    std::string instanceName;
    if (!m_element.isNull()) {
        const TVLIDOM_Element instances =
            TVLIDOM_Helper::findFirstElementWithAttribute(m_element, "vrx:instances", "name", "zor");
        instanceName =
            TVLIDOM_Helper::findFirstElementWithName(instances, "vrx:instance").getAttribute("name").str();
        addParameters();
    }
    try {
        addTemp();
        addDispatcher(instanceName);
        if (TVLConfigurationFactory::getInstance()->getString("networkConfiguration") == "IPv6") {
            setProperty("ip_protocol", "IPv6");
        }
    } catch (const TVLConfigurationException& exception) {
        throw ZORBadConfigException(exception.getMessage());
    }
    findJavaVendor();
}

void ZORStartupProperties::addParameters() const {
    for (const Parameter& parameter : kParameters) {
        I18NString value;
        if (!read(value, parameter.name, parameter.type)) continue;
        setProperty(parameter.name, value.c_str());
        if (std::strcmp(parameter.name, "dispatcherMaxMemory") == 0) calculateMemory();
    }
}

void ZORStartupProperties::addTemp() const {
    const I18NString temp = TVLConfigurationFactory::getInstance()->getElement("temp").getTextContent();
    setProperty("temp", temp.c_str());
    if (TVLFmDir::exists(temp.c_str())) {
        logger->log(ZOR_DEBUG, "Confirmed that temp directory \"%s\" does exist.", temp.c_str());
        return;
    }
    logger->log(ZOR_WARN, "Temp directory \"%s\" does not exist, will try to create.", temp.c_str());
    if (TVLFmDir::createWithParents(temp.c_str())) {
        logger->log(ZOR_WARN, "Temp directory \"%s\" was created successfully.", temp.c_str());
    } else {
        logger->log(ZOR_FATAL, "Failed to create temp directory \"%s\".", temp.c_str());
    }
}

void ZORStartupProperties::addDispatcher(const std::string& instanceName) const {
    const I18NString uri =
        TVLConfigurationFactory::getInstance()->getElement("internalDispatcher").getTextContent();
    const std::string port = portOf(uri.str());
    setProperty("dispatcherURI", uri.c_str());
    setProperty("dispatcherPort", port.c_str());
    setProperty("contentManagerURI", uri.c_str());
    std::string serviceName = instanceName.empty() ? m_defaultServiceName : instanceName;
    if (port != kDefaultPort) serviceName += ":" + port;
    setProperty("serviceName", serviceName.c_str());
}

void ZORStartupProperties::calculateMemory() {
    const char* const maxMemory = ZORPropertyInserter::getInstance()->get("dispatcherMaxMemory");
    if (maxMemory == nullptr) return;
    const int memory = TVLNumber::parse(maxMemory);
    for (const int divisor : {2, 3, 4}) {
        const std::string name = "dispatcherMaxMemoryBy" + std::to_string(divisor);
        setProperty(name.c_str(), std::to_string(memory / divisor).c_str());
    }
}

void ZORStartupProperties::findJavaVendor() const {
    const std::string path = ZORPropertyInserter::expanded("${temp}/zor.prefs");
    const std::optional<std::string> text = TVLFile::read(path.c_str(), TVLFile::kMostOfAList);
    if (!text) {
        logger->log(ZOR_DEBUG, "ZOR Java properties file \"%s\" is NOT found.", path.c_str());
        setProperty("java_vendor", "");
        return;
    }
    logger->log(ZOR_DEBUG, "ZOR Java properties file \"%s\" is found.", path.c_str());
    const JavaPreferences preferences = readJavaPreferences(*text);
    const std::string absoluteHome = TVLFmDir::resolveByChangingInto(preferences.home.c_str());
    logger->log(ZOR_DEBUG, "AbsJavaHomeInFile =\"%s\"", absoluteHome.c_str());
    if (absoluteHome.empty()) {
        logger->log(ZOR_DEBUG,
                    "Java home in the ZOR Java properties file is empty, no need to check java vendor. "
                    "JavaHomeInFile=\"%s\", JavaHomeInZOR=\"%s\"",
                    preferences.home.c_str(), nullptr);
        setProperty("java_vendor", "");
        return;
    }
    setProperty("java_vendor", knownVendor(preferences.vendor));
}
