#include "XmlMemory.h"

#include <new>
#include <xercesc/util/OutOfMemoryException.hpp>
#include <xercesc/util/PlatformUtils.hpp>

namespace {

// Of the parse that this thread is in; null outside of one.
thread_local XmlMemory::Parse* current = nullptr;

void* piece(XMLSize_t size) {
    try {
        return ::operator new(size);
    } catch (const std::bad_alloc&) {
        throw xercesc::OutOfMemoryException();
    }
}

}  // namespace

void XmlMemory::Link::join(Link& ring) {
    next = ring.next;
    previous = &ring;
    ring.next->previous = this;
    ring.next = this;
}

void XmlMemory::Link::leave() {
    next->previous = previous;
    previous->next = next;
    next = previous = this;
}

XmlMemory::Parse::Parse() : m_before(current) {
    current = this;
}

XmlMemory::Parse::~Parse() {
    current = m_before;
    Link* piece = m_ring.next;
    while (piece != &m_ring) {
        Link* const next = piece->next;
        ::operator delete(piece);
        piece = next;
    }
}

XmlMemory& XmlMemory::instance() {
    static auto* const manager = new XmlMemory;
    return *manager;
}

std::size_t XmlMemory::taken() {
    return current == nullptr ? 0 : current->m_taken;
}

void* XmlMemory::allocate(XMLSize_t size) {
    auto* const link = new (piece(sizeof(Link) + size)) Link;
    if (current != nullptr) {
        ++current->m_taken;
        link->join(current->m_ring);
    }
    return link + 1;
}

void XmlMemory::deallocate(void* memory) {
    if (memory == nullptr) return;
    auto* const link = static_cast<Link*>(memory) - 1;
    link->leave();
    ::operator delete(link);
}

xercesc::MemoryManager* XmlMemory::getExceptionMemoryManager() {
    return xercesc::XMLPlatformUtils::fgMemoryManager;
}
