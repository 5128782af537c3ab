#include "CTLFolderCheck.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <pwd.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <optional>
#include <set>
#include <system_error>

#include "CTLExecutable.h"
#include "CTLNearest.h"
#include "CTLReferences.h"
#include "TVLFile.h"
#include "TVLIDOM_Helper.h"
#include "TVLNumber.h"
#include "ZOREnvironment.h"
#include "ZORPropertyInserter.h"

namespace fs = std::filesystem;
using Severity = CTLFinding::Severity;

namespace {

bool may(const fs::path& path, int mode) {
    return faccessat(AT_FDCWD, path.c_str(), mode, AT_EACCESS) == 0;
}

std::string user() {
    const passwd* const entry = getpwuid(geteuid());
    return entry == nullptr ? "the user with id " + std::to_string(geteuid()) : entry->pw_name;
}

// Root may write there, too, and nobody can make anything.
bool isOfKernel(const fs::path& folder) {
    struct statfs status {};
    return statfs(folder.c_str(), &status) == 0 &&
           (status.f_type == PROC_SUPER_MAGIC || status.f_type == SYSFS_MAGIC);
}

// Why nothing can be made in a folder; empty when it can.
std::string complaintOfFolder(const fs::path& folder) {
    std::error_code error;
    if (!fs::exists(folder, error)) return "is not there";
    if (!fs::is_directory(folder, error)) return "is no folder";
    return may(folder, W_OK | X_OK) && !isOfKernel(folder) ? "" : user() + " cannot write to it";
}

fs::path nearestFolder(fs::path path) {
    std::error_code error;
    while (!fs::exists(path, error) && path.has_parent_path() && path != path.parent_path())
        path = path.parent_path();
    return path;
}

// The names of variables are words; the system takes anything before the first equals sign.
std::string complaintOfEntry(const std::string& entry) {
    const std::size_t equals = entry.find('=');
    if (equals == std::string::npos) return "has no \"=\": it takes the variable away";
    const std::string name = entry.substr(0, equals);
    if (name.empty() || name.find_first_of(" \t\"'$") != std::string::npos)
        return "sets a variable with the name \"" + name + "\"";
    const std::string value = entry.substr(equals + 1);
    const bool isQuoted =
        value.size() > 1 && value.front() == value.back() && (value[0] == '"' || value[0] == '\'');
    if (isQuoted) return "the quotes belong to the value of " + name;
    if (!value.empty() && (value.back() == ' ' || value.back() == '\r' || value.back() == '\t'))
        return "the blank at the end belongs to the value of " + name;
    return {};
}

}  // namespace

void CTLFolderCheck::add(Severity severity, const char* rule, const fs::path& file, const std::string& text) {
    m_findings.add({severity, rule, file.string(), {}, "", text});
}

// ---- Programs ----

// The library is looked for beside the program itself, wherever a link to it lies.
void CTLFolderCheck::checkPrograms() {
    const std::string complaint = CTLExecutable::complaint(m_instance.executable().string());
    if (!complaint.empty()) return add(Severity::Error, "program", m_instance.executable(), complaint);
    std::error_code error;
    const fs::path library =
        fs::canonical(m_instance.executable(), error).parent_path() / "libSEK_Crypto_Interface.so";
    if (!fs::exists(library, error)) {
        add(Severity::Error, "library", library, "the security library is not beside the program");
    } else if (!may(library, R_OK)) {
        add(Severity::Error, "library", library, user() + " cannot read the security library");
    }
}

// ---- The environment ----

void CTLFolderCheck::checkEnvironmentFile() {
    const fs::path path = m_instance.environmentFile();
    std::error_code error;
    if (!fs::exists(path, error)) return;
    const std::optional<std::string> text = TVLFile::read(path.c_str(), TVLFile::kMostOfAList);
    if (!text)
        return add(Severity::Error, "environment", path,
                   std::string("cannot be read, and is passed over: ") + std::strerror(errno));
    std::size_t line = 0;
    for (std::size_t at = 0; at < text->size(); ++line) {
        const std::size_t end = std::min(text->find('\n', at), text->size());
        for (const std::string& entry : ZOREnvironment::entriesOf(text->substr(at, end - at))) {
            const std::string complaint = complaintOfEntry(entry);
            if (!complaint.empty())
                m_findings.add(
                    {Severity::Warning, "environment", path.string(), {line + 1, 1}, "", complaint});
        }
        at = end + 1;
    }
}

void CTLFolderCheck::checkJavaHome() {
    if (ZORPropertyInserter::getInstance()->get("java_home") != nullptr) return;
    add(Severity::Error, "environment", m_instance.environmentFile(),
        "no command works without a Java home: set JAVA_HOME here or in the environment");
}

// It changes the limit while the service runs.
void CTLFolderCheck::checkLimitFile() {
    const fs::path path = m_instance.bin() / "zor.failedPingLimit";
    std::error_code error;
    if (!fs::exists(path, error)) return;
    const std::optional<std::string> text = TVLFile::read(path.c_str(), TVLFile::kMostOfARecord);
    if (!text) return add(Severity::Warning, "number", path, "cannot be read, and is passed over");
    const int limit = TVLNumber::parse(text->c_str());
    if (limit > 0) return;
    add(Severity::Warning, "number", path,
        "the limit of failed pings in it is " + std::to_string(limit) + ": the first one restarts a child");
}

// ---- Logs ----

void CTLFolderCheck::checkLogs() {
    const std::string complaint = complaintOfFolder(m_instance.logs());
    if (!complaint.empty())
        return add(Severity::Error, "rights", m_instance.logs(),
                   complaint + ": no log and no PID file, so that no command finds the daemon");
    checkWritableFile(m_instance.pidFile());
    checkWritableFile(m_instance.logs() / "zordefault.log");
}

void CTLFolderCheck::checkWritableFile(const fs::path& file) {
    std::error_code error;
    const bool isWritable = !fs::exists(file, error) || may(file, W_OK);
    if (!isWritable) add(Severity::Error, "rights", file, user() + " cannot write to it");
}

void CTLFolderCheck::checkLogging(const CTLDocument& logging) {
    for (const CTLDocument::Element& element : logging.elements()) {
        if (element.handle.hasNodeName("file")) checkLogFile(logging, element.handle);
    }
}

// This document is read before all others.
void CTLFolderCheck::checkLogFile(const CTLDocument& logging, const TVLIDOM_Element& file) {
    std::string name = file.getAttribute("name").str();
    static const std::set<std::string> known{"bin_path", "install_path"};
    for (const std::string& reference : CTLReferences::namesIn(name)) {
        if (known.count(reference) != 0) continue;
        return m_findings.add(logging.at(Severity::Error, "reference", file, "name",
                                         "${" + reference + "} is not known yet when this document is read" +
                                             CTLNearest::question(reference, known)));
    }
    name = ZORPropertyInserter::expanded(name.c_str());
    if (name.empty()) return;
    std::error_code error;
    const bool isThere = fs::exists(name, error);
    const std::string complaint =
        isThere ? (may(name, W_OK) && !fs::is_directory(name, error) ? "" : user() + " cannot write to it")
                : complaintOfFolder(fs::absolute(name).parent_path());
    if (complaint.empty()) return;
    m_findings.add(
        logging.at(Severity::Error, "rights", file, "name",
                   (isThere ? name : fs::absolute(name).parent_path().string()) + ": " + complaint));
}

// ---- The startup configuration ----

void CTLFolderCheck::checkStartup(const CTLDocument& startup) {
    checkTemp(startup);
    for (const CTLDocument::Element& element : startup.elements()) {
        if (element.handle.hasNodeName("vrx:parameter")) checkParameter(startup, element.handle);
    }
}

// The service makes it, with its parents, when it is not there.
void CTLFolderCheck::checkTemp(const CTLDocument& startup) {
    const char* const temp = ZORPropertyInserter::getInstance()->get("temp");
    if (temp == nullptr || *temp == '\0') return;
    const fs::path path = fs::absolute(temp).lexically_normal();
    const std::string complaint = complaintOfFolder(nearestFolder(path));
    if (complaint.empty()) return;
    m_findings.add(startup.at(
        Severity::Error, "rights", TVLIDOM_Helper::findFirstElementWithName(startup.root(), "temp"), "",
        path.string() + " cannot be made or written: " + nearestFolder(path).string() + ": " + complaint));
}

void CTLFolderCheck::checkParameter(const CTLDocument& startup, const TVLIDOM_Element& parameter) {
    const std::string name = parameter.getAttribute("name").str();
    const char* const value = ZORPropertyInserter::getInstance()->get(name.c_str());
    const TVLIDOM_Element element = TVLIDOM_Helper::findFirstElementWithName(parameter, "vrx:value");
    if (value == nullptr) {
        // The service says so itself when the type is wrong.
        if (m_findings.has(startup.file(), startup.elementOf(element).place.line)) return;
        return m_findings.add(startup.at(
            Severity::Error, "text", element.isNull() ? parameter : element, "",
            "the service finds no value of " + name + ": it takes text that the element begins with"));
    }
    if (TVLNumber::parse(value) > 0) return;
    const bool isTime = name == "dispatcherPingTimeout" || name == "dispatcherStopWaitTime";
    m_findings.add(startup.at(
        Severity::Warning, "number", element, "",
        name + " is \"" + value + "\", " + (isTime ? "which counts as 60" : "which is no number above 0")));
}
