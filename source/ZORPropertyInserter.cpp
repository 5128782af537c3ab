#include "ZORPropertyInserter.h"

#include <algorithm>

#include "ZORLogger.h"

namespace {

ZORLogger* const logger = ZORLoggerFactory::getInstance()->getLogger("ZORPropertyInserter");

// The text still to be read. Its beginning is kept at the end of a string, so that values can be put back in
// front of what follows at no more than their own cost.
class PendingText {
  public:
    explicit PendingText(const std::string& text) { putBack(text); }

    bool empty() const { return m_reversed.empty(); }
    bool startsReference() const {
        const std::size_t size = m_reversed.size();
        return size >= 2 && m_reversed[size - 1] == '$' && m_reversed[size - 2] == '{';
    }
    char take() {
        const char first = m_reversed.back();
        m_reversed.pop_back();
        return first;
    }
    void putBack(const std::string& text) { m_reversed.append(text.rbegin(), text.rend()); }
    void putBack(char first) { m_reversed.push_back(first); }

    // The length of the name of the reference that the text starts with; npos when no "}" follows.
    std::size_t nameLength() const {
        const std::size_t nameEnd = m_reversed.size() - 2;  // the name reads downwards from here
        const std::size_t brace = nameEnd == 0 ? std::string::npos : m_reversed.rfind('}', nameEnd - 1);
        return brace == std::string::npos ? std::string::npos : nameEnd - 1 - brace;
    }
    std::string takeAll() {
        std::reverse(m_reversed.begin(), m_reversed.end());
        return std::move(m_reversed);
    }
    std::string takeFirst(std::size_t count) {
        std::string first(m_reversed.rbegin(), m_reversed.rbegin() + static_cast<std::ptrdiff_t>(count));
        m_reversed.resize(m_reversed.size() - count);
        return first;
    }

  private:
    std::string m_reversed;
};

}  // namespace

ZORPropertyInserter* ZORPropertyInserter::m_pInstance = nullptr;

ZORPropertyInserter::~ZORPropertyInserter() = default;

ZORPropertyInserter* ZORPropertyInserter::getInstance() {
    if (m_pInstance == nullptr) m_pInstance = new ZORPropertyInserter;
    return m_pInstance;
}

void ZORPropertyInserter::add(const char* name, const char* value) {
    logger->log(ZOR_DEBUG, "Added property %s with value \"%s\"", name, value);
    m_properties.insert_or_assign(name, value);
}

const char* ZORPropertyInserter::get(const char* name) const {
    const auto entry = m_properties.find(name);
    return entry == m_properties.end() ? nullptr : entry->second.c_str();
}

void ZORPropertyInserter::insertProperties(std::string& text) const {
    if (text.find("${") == std::string::npos) return;
    std::string expanded = expand(text);
    if (expanded == text) return;
    logger->log(ZOR_DEBUG, "changed \n   \"%s\" \nto \"%s\"", text.c_str(), expanded.c_str());
    text = std::move(expanded);
}

std::string ZORPropertyInserter::expand(const std::string& text) const {
    std::string done;
    std::size_t resume = 0;  // nothing before this position of `done` is looked at again
    PendingText rest(text);
    while (!rest.empty()) {
        if (!rest.startsReference()) {
            done += rest.take();
            continue;
        }
        const std::size_t length = rest.nameLength();
        if (length == std::string::npos) return done + rest.takeAll();
        const std::string opened = rest.takeFirst(2 + length);  // "${name", the "}" stays
        const auto entry = m_properties.find(std::string_view(opened).substr(2));
        if (entry == m_properties.end()) {
            done += opened;
            resume = done.size();
            done += rest.take();
            continue;
        }
        rest.take();
        rest.putBack(entry->second);
        // A "$" just before the reference may start another one together with what the value begins with.
        if (done.size() > resume && done.back() == '$') {
            done.pop_back();
            rest.putBack('$');
        }
    }
    return done;
}

std::string ZORPropertyInserter::expanded(const char* text) {
    std::string result = text;
    getInstance()->insertProperties(result);
    return result;
}
