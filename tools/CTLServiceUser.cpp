#include "CTLServiceUser.h"

#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "CTLError.h"
#include "CTLInstance.h"

namespace {

constexpr const char* kPackageUser = "velbootstrap";

std::string nameOf(uid_t user) {
    const passwd* const entry = getpwuid(user);
    return entry == nullptr ? "the user with id " + std::to_string(user) : entry->pw_name;
}

// The groups first: without root's rights they could not be changed any more.
void turnInto(uid_t user) {
    const passwd* const entry = getpwuid(user);
    const bool isDone = entry != nullptr && initgroups(entry->pw_name, entry->pw_gid) == 0 &&
                        setresgid(entry->pw_gid, entry->pw_gid, entry->pw_gid) == 0 &&
                        setresuid(user, user, user) == 0;
    if (!isDone)
        throw CTLError(CTLError::kFailed, "cannot become " + nameOf(user) + ", who runs the service");
}

}  // namespace

uid_t CTLServiceUser::of(const CTLInstance& instance) {
    const passwd* const package = instance.isSystem() ? getpwnam(kPackageUser) : nullptr;
    if (package != nullptr) return package->pw_uid;
    struct stat status {};
    return stat(instance.logs().c_str(), &status) == 0 ? status.st_uid : geteuid();
}

void CTLServiceUser::become(const CTLInstance& instance) {
    const uid_t user = of(instance);
    if (user == geteuid()) return;
    if (geteuid() == 0) return turnInto(user);
    if (!instance.isSystem()) return;
    throw CTLError(CTLError::kWrongUser, "the service of " + instance.folder().string() + " is run by " +
                                             nameOf(user) + ": give this command as root, or as that user");
}
