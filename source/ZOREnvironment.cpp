#include "ZOREnvironment.h"

#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "TVLConfigurationFactory.h"
#include "TVLFile.h"
#include "TVLOs.h"
#include "TVLThrowable.h"
#include "ZORHelpers.h"
#include "ZORLogger.h"
#include "ZORPropertyInserter.h"

namespace {

// What these classes do for the service is told under its name.
ZORLogger* const logger = ZORLoggerFactory::getInstance()->getLogger("ZORBootstrapService");

constexpr const char* kFile = "../configuration/zorEnvironmentVars.ini";

// What the environment keeps pointing to for the rest of the process. The list, never destroyed, also holds
// what the environment has let go of since, so that nothing looks lost at the end.
char* immortalCopy(const std::string& text) {
    static auto* const copies = new std::vector<char*>;
    char* const copy = strdup(text.c_str());
    if (copy == nullptr) throw TVLOutOfMemoryError(__FILE__, __LINE__);
    copies->push_back(copy);
    return copy;
}

std::string fullPath(std::string path) {
    TVLConfigurationFactory::getInstance()->getFullPath(path);
    return path;
}

void add(const std::string& variable) {
    if (TVLOs::current().putenv(immortalCopy(variable)) != 0) throw TVLOutOfMemoryError(__FILE__, __LINE__);
}

}  // namespace

char** ZOREnvironment::m_envp = nullptr;

void ZOREnvironment::applyFile() {
    const std::optional<std::string> text = TVLFile::read(kFile, TVLFile::kMostOfAList);
    if (!text) return;
    for (const std::string& entry : entriesOf(*text))
        add(entry);
}

std::vector<std::string> ZOREnvironment::entriesOf(const std::string& text) {
    std::vector<std::string> entries;
    for (std::size_t at = 0; at < text.size();) {
        std::string line = ZORHelpers::nextLine(text, at, text.size());
        if (line.back() == '\n') line.pop_back();
        if (!line.empty() && line[0] != '#') entries.push_back(std::move(line));
    }
    return entries;
}

void ZOREnvironment::keep(char** envp) {
    if (envp == nullptr) return;
    if (logger->writes(ZOR_DEBUG)) {
        logger->log(ZOR_DEBUG, "envp is...");
        for (char** entry = envp; *entry != nullptr; ++entry)
            logger->log(ZOR_DEBUG, "%s", *entry);
    }
    m_envp = envp;
}

bool ZOREnvironment::findHome(std::string& installRoot, std::string& binDirectory) {
    installRoot = fullPath("..");
    binDirectory = fullPath(".");
    if (installRoot.empty()) {
        logger->log(ZOR_FATAL, "Install home directory has not been specified");
        return false;
    }
    if (binDirectory.empty()) {
        logger->log(ZOR_FATAL, "Install bin directory has not been specified");
        return false;
    }
    ZORPropertyInserter::getInstance()->add("install_path", installRoot.c_str());
    ZORPropertyInserter::getInstance()->add("bin_path", binDirectory.c_str());
    return true;
}
