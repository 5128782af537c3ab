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

// The groups first: without root's rights they could not be changed any more. A user without a name has none but the
// group of the folder.
void turnInto(uid_t user, gid_t folderGroup) {
    const passwd* const entry = getpwuid(user);
    const gid_t group = entry == nullptr ? folderGroup : entry->pw_gid;
    const bool hasGroups =
        entry == nullptr ? setgroups(0, nullptr) == 0 : initgroups(entry->pw_name, group) == 0;
    if (hasGroups && setresgid(group, group, group) == 0 && setresuid(user, user, user) == 0) return;
    throw CTLError(CTLError::kFailed, "cannot become " + nameOf(user) + ", who runs the service");
}

gid_t groupOf(const CTLInstance& instance) {
    struct stat status {};
    return stat(instance.logs().c_str(), &status) == 0 ? status.st_gid : getegid();
}

}  // namespace

uid_t CTLServiceUser::of(const CTLInstance& instance) {
    const passwd* const package = instance.isSystem() ? getpwnam(kPackageUser) : nullptr;
    if (package != nullptr) return package->pw_uid;
    struct stat status {};
    return stat(instance.logs().c_str(), &status) == 0 ? status.st_uid : geteuid();
}

void CTLServiceUser::becomeAsRoot(const CTLInstance& instance) {
    const uid_t user = of(instance);
    if (geteuid() == 0 && user != 0) turnInto(user, groupOf(instance));
}

void CTLServiceUser::become(const CTLInstance& instance) {
    const uid_t user = of(instance);
    if (user == geteuid()) return;
    if (geteuid() == 0) return turnInto(user, groupOf(instance));
    if (!instance.isSystem()) return;
    throw CTLError(CTLError::kWrongUser, "the service of " + instance.folder().string() + " is run by " +
                                             nameOf(user) + ": give this command as root, or as that user");
}
