// The memory that the XML library takes for one document.
//
// Purpose: a parser that is left by an exception in the middle of a declaration forgets what it was building. While an
//   XmlMemory::Parse exists, what the library takes is linked to it, and what is still there when it goes is
//   released.
// Ownership: the manager itself is never destroyed.
// Threads: a Parse belongs to the thread that made it.
// Units: bytes.
// Errors: memory exhaustion is the library's own exception.
#pragma once

#include <cstddef>
#include <xercesc/framework/MemoryManager.hpp>

class XmlMemory : public xercesc::MemoryManager {
  public:
    // Links in a ring stand before each piece; a piece alone is its own ring.
    struct alignas(std::max_align_t) Link {
        Link* next = this;
        Link* previous = this;

        void join(Link& ring);
        void leave();
    };

    class Parse {
      public:
        Parse();
        ~Parse();
        Parse(const Parse&) = delete;
        Parse& operator=(const Parse&) = delete;

      private:
        friend class XmlMemory;

        Link m_ring;
        Parse* m_before;
        std::size_t m_taken = 0;
    };

    static XmlMemory& instance();
    // How often this thread's parse has taken memory so far.
    static std::size_t taken();

    void* allocate(XMLSize_t size) override;
    void deallocate(void* memory) override;
    // What exceptions carry outlives the parse.
    xercesc::MemoryManager* getExceptionMemoryManager() override;
};
