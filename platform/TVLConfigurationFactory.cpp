#include "TVLConfigurationFactory.h"

#include <cerrno>
#include <new>
#include <xercesc/util/OutOfMemoryException.hpp>

#include "TVLDocumentFile.h"
#include "TVLFile.h"
#include "TVLFmDir.h"
#include "TVLIDOM_Helper.h"

namespace {

constexpr const char* kStartupFile = "../configuration/startup.xml";

[[noreturn]] void fail(const std::string& path, const char* words) {
    const std::string text = "cannot read startup configuration \"" + path + "\": " + words;
    throw TVLConfigurationException(text.c_str(), __FILE__, __LINE__);
}

}  // namespace

TVLConfigurationFactory* TVLConfigurationFactory::m_pInstance = nullptr;

TVLConfigurationFactory::~TVLConfigurationFactory() = default;

TVLConfigurationFactory* TVLConfigurationFactory::getInstance() {
    // First called on the main thread, before any other exists.
    if (m_pInstance == nullptr) m_pInstance = new TVLConfigurationFactory;
    return m_pInstance;
}

TVLIDOM_Element TVLConfigurationFactory::getElement(const I18NString& name) {
    const TVLThreadGuard guard(m_mutex);
    return child(name);
}

I18NString TVLConfigurationFactory::getString(const I18NString& name) {
    const TVLThreadGuard guard(m_mutex);
    try {
        return child(name).getTextContent();
    } catch (const xercesc::OutOfMemoryException&) {
        throw std::bad_alloc();
    }
}

I18NString TVLConfigurationFactory::getComponentVersion(const I18NString& component) {
    const TVLThreadGuard guard(m_mutex);
    return TVLIDOM_Helper::findFirstElementWithAttribute(child("components"), "component", "name", component)
        .getAttribute("version");
}

void TVLConfigurationFactory::getFullPath(std::string& path) {
    path = TVLFmDir::fullPath(path);
}

TVLIDOM_Element TVLConfigurationFactory::child(const I18NString& name) {
    load();
    TVLIDOM_Node at = m_document.getDocumentElement().getFirstChild();
    while (!at.isNull() && !TVLIDOM_Helper::isElementNamed(at, name))
        at = at.getNextSibling();
    return TVLIDOM_Element(at);
}

void TVLConfigurationFactory::load() {
    if (m_loaded) return;
    const std::string path = TVLFmDir::fullPath(kStartupFile);
    std::string why;
    TVLFilePtr file = TVLFile::openForReading(kStartupFile, TVLFile::kMostOfADocument, &why);
    const bool isThere = file || errno != ENOENT;
    TVLFileStream stream(std::move(file));
    // The document stays empty when there is no such file.
    TVLDocumentFile::read(stream, m_document,
                          {[&] {
                               if (isThere) fail(path, why.c_str());
                           },
                           [&](const char* words) { fail(path, words); }});
    m_loaded = true;
}
