#include "FailingOs.h"

#include <cerrno>
#include <cstring>
#include <limits>

#include "TVLThread.h"

namespace {

[[noreturn]] bool refuseToWait() {
    throw TVLThreadResourceError(std::strerror(errno), __FILE__, __LINE__);
}

}  // namespace

const char* nameOf(OsKind kind) {
#define OS_KIND(kind) #kind,
    static constexpr std::array kNames{OS_KINDS(OS_KIND)};
#undef OS_KIND
    return kNames[static_cast<std::size_t>(kind)];
}

void PrintTo(OsKind kind, std::ostream* out) {
    *out << nameOf(kind);
}

FailingOs::FailingOs(TVLOs& os) : m_os(os), m_before(install(this)) {}

FailingOs::~FailingOs() {
    install(m_before);
}

void FailingOs::failNth(OsKind kind, int number, int error) {
    refuse(kind, number, number, error);
}

void FailingOs::failFrom(OsKind kind, int number, int error) {
    refuse(kind, number, std::numeric_limits<int>::max(), error);
}

void FailingOs::reset() {
    for (const OsKind kind : kOsKinds)
        refuse(kind, 0, 0, 0);
}

void FailingOs::refuse(OsKind kind, int first, int last, int error) {
    Plan& plan = m_plans[static_cast<std::size_t>(kind)];
    plan.uses = 0;
    plan.refusals = 0;
    plan.first = first;
    plan.last = last;
    plan.error = error;
}

bool FailingOs::refuses(OsKind kind) {
    Plan& plan = m_plans[static_cast<std::size_t>(kind)];
    const int number = ++plan.uses;
    if (plan.first == 0 || number < plan.first || number > plan.last) return false;
    ++plan.refusals;
    errno = plan.error;
    return true;
}

#define OS_MEMBER(kind, result, name, parameters, arguments, refused) \
    result FailingOs::name parameters {                               \
        using enum OsKind;                                            \
        if (refuses(kind)) return refused;                            \
        return m_os.name arguments;                                   \
    }
OS_CALLS(OS_MEMBER)
#undef OS_MEMBER

#define OS_MEMBER(result, name, parameters, arguments) \
    result FailingOs::name parameters {                \
        return m_os.name arguments;                    \
    }
OS_SURE_CALLS(OS_MEMBER)
#undef OS_MEMBER
