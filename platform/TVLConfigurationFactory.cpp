#include "TVLConfigurationFactory.h"

#include <cerrno>
#include <cstring>
#include <new>
#include <xercesc/util/OutOfMemoryException.hpp>

#include "TVLFile.h"
#include "TVLFmDir.h"
#include "TVLIDOM_Helper.h"
#include "TVLIDOM_Parser.h"

namespace {

constexpr const char* kStartupFile = "../configuration/startup.xml";

// Feeds the parser from an open file and remembers whether reading failed.
class FileBytes : public PLXInputStream {
  public:
    explicit FileBytes(TVLFilePtr file) : m_file(std::move(file)) {}

    int read(TVLByteBuffer& buffer, int count) override { return read(buffer.data(), count); }
    int read(char* buffer, int count) override {
        if (!m_file || count < 1) return -1;
        const std::size_t got = std::fread(buffer, 1, static_cast<std::size_t>(count), m_file.get());
        if (std::ferror(m_file.get()) != 0) m_error = errno;
        return got > 0 ? static_cast<int>(got) : -1;
    }
    int read() override { return m_file ? std::fgetc(m_file.get()) : -1; }
    void close() override { m_file.reset(); }
    bool canUnread() override { return false; }

    int error() const { return m_error; }

  private:
    TVLFilePtr m_file;
    int m_error = 0;
};

std::string failure(const std::string& path, const char* words) {
    return "cannot read startup configuration \"" + path + "\": " + words;
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
    TVLFilePtr file = TVLFile::open(kStartupFile, "rb");
    if (!file && errno != ENOENT) {
        throw TVLConfigurationException(failure(path, std::strerror(errno)).c_str(), __FILE__, __LINE__);
    }
    if (file) {
        FileBytes stream(std::move(file));
        TVLIDOM_Parser parser;
        const bool parsed = parser.parse(stream, m_document) == 1;
        if (stream.error() != 0) {
            throw TVLConfigurationException(failure(path, std::strerror(stream.error())).c_str(), __FILE__,
                                            __LINE__);
        }
        if (!parsed) {
            throw TVLConfigurationException(failure(path, parser.getErrorString().c_str()).c_str(), __FILE__,
                                            __LINE__);
        }
    }
    m_loaded = true;
}
