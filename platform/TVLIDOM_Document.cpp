#include "TVLIDOM_Document.h"

#include <set>
#include <xercesc/util/PlatformUtils.hpp>

#include "TVLThreadSync.h"
#include "XmlNetwork.h"

namespace {

struct LiveDocuments {
    TVLThreadMutex mutex;
    std::set<TVLIDOM_Document*> documents TVL_GUARDED_BY(mutex);
};

// Never destroyed: documents of static objects may end later than any static object here.
LiveDocuments& live() {
    static auto* const instance = new LiveDocuments;
    return *instance;
}

}  // namespace

TVLIDOM_Document::TVLIDOM_Document() {
    const TVLThreadGuard guard(live().mutex);
    live().documents.insert(this);
}

TVLIDOM_Document::~TVLIDOM_Document() {
    const TVLThreadGuard guard(live().mutex);
    live().documents.erase(this);
}

TVLIDOM_Element TVLIDOM_Document::getDocumentElement() const {
    if (m_tree == nullptr) return {};
    return TVLIDOM_Element(TVLIDOM_Node(m_tree->documentElement()));
}

void TVLIDOM_Document::adopt(std::unique_ptr<XmlTree> tree) {
    m_tree = std::move(tree);
}

void TVLIDOM_DOMImplementation::initialize() {
    XmlNetwork::refuse();
    xercesc::XMLPlatformUtils::Initialize();
}

void TVLIDOM_DOMImplementation::terminate() {
    {
        const TVLThreadGuard guard(live().mutex);
        for (TVLIDOM_Document* const document : live().documents)
            document->adopt(nullptr);
    }
    xercesc::XMLPlatformUtils::Terminate();
}
