#include "CTLReferences.h"

#include <algorithm>
#include <limits>

#include "CTLNearest.h"
#include "ZORPropertyInserter.h"

namespace {

// Of values that refer to each other.
class Lengths {
  public:
    explicit Lengths(const std::map<std::string, std::string>& values) : m_values(values) {}

    double of(const std::string& name) {
        const auto known = m_lengths.find(name);
        if (known != m_lengths.end()) return known->second;
        // Whoever comes here again on the way has come in a circle.
        m_lengths[name] = std::numeric_limits<double>::infinity();
        const std::string& value = m_values.at(name);
        auto length = static_cast<double>(value.size());
        for (const std::string& inside : CTLReferences::namesIn(value)) {
            if (m_values.count(inside) != 0) length += of(inside);
        }
        return m_lengths[name] = length;
    }

  private:
    const std::map<std::string, std::string>& m_values;
    std::map<std::string, double> m_lengths;
};

}  // namespace

const std::set<std::string>& CTLReferences::ofTheService() {
    static const std::set<std::string> names{"CRLF",
                                             "bin_path",
                                             "contentManagerURI",
                                             "dispatcherMaxMemory",
                                             "dispatcherMaxMemoryBy2",
                                             "dispatcherMaxMemoryBy3",
                                             "dispatcherMaxMemoryBy4",
                                             "dispatcherPingTimeout",
                                             "dispatcherPort",
                                             "dispatcherStopWaitTime",
                                             "dispatcherURI",
                                             "install_path",
                                             "ip_protocol",
                                             "java_home",
                                             "java_vendor",
                                             "platform",
                                             "serviceName",
                                             "shutdownPort",
                                             "temp"};
    return names;
}

std::vector<std::string> CTLReferences::namesIn(const std::string& text) {
    std::vector<std::string> names;
    for (std::size_t at = text.find("${"); at != std::string::npos; at = text.find("${", at + 2)) {
        const std::size_t end = text.find('}', at);
        if (end == std::string::npos) break;
        names.push_back(text.substr(at + 2, end - at - 2));
    }
    return names;
}

double CTLReferences::longestOf(const std::map<std::string, std::string>& values, std::string& name) {
    Lengths lengths(values);
    double longest = 0;
    for (const auto& [each, value] : values) {
        const double length = lengths.of(each);
        if (length <= longest) continue;
        longest = length;
        name = each;
    }
    return longest;
}

std::vector<std::string> CTLReferences::unknownIn(const std::string& text) const {
    std::vector<std::string> names = namesIn(ZORPropertyInserter::expanded(text.c_str()));
    std::erase_if(names, [&](const std::string& name) { return m_elsewhere.count(name) != 0; });
    return names;
}

std::set<std::string> CTLReferences::known() const {
    std::set<std::string> names = ofTheService();
    names.insert(m_elsewhere.begin(), m_elsewhere.end());
    for (const auto& [name, value] : ZORPropertyInserter::getInstance()->all())
        names.insert(name);
    return names;
}

std::string CTLReferences::complaint(const std::string& name) const {
    const std::string start = "nobody defines ${" + name + "}";
    if (ofTheService().count(name) != 0) {
        return start + " here: the startup configuration, or the environment, has no value for it";
    }
    return start + CTLNearest::question(name, known());
}

bool CTLReferences::isSlip(const std::string& name) const {
    return ofTheService().count(name) == 0 && !CTLNearest::to(name, known()).empty();
}
