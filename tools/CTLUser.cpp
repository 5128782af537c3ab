#include "CTLUser.h"

#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "CTLError.h"
#include "CTLInstance.h"

namespace {

// The user's own groups; a user without a name has but the folder's.
bool takeGroups(uid_t user, gid_t folderGroup) {
    passwd entry{};
    passwd* found = nullptr;
    std::array<char, 4096> texts{};
    getpwuid_r(user, &entry, texts.data(), texts.size(), &found);
    if (found == nullptr) return setgroups(0, nullptr) == 0 && setgid(folderGroup) == 0;
    return initgroups(entry.pw_name, entry.pw_gid) == 0 && setgid(entry.pw_gid) == 0;
}

}  // namespace

void CTLUser::become(const CTLInstance& instance) {
    struct stat logs {};
    if (geteuid() != 0 || stat(instance.logs().c_str(), &logs) != 0 || logs.st_uid == 0) return;
    if (takeGroups(logs.st_uid, logs.st_gid) && setuid(logs.st_uid) == 0) return;
    throw CTLError(CTLError::kFailed, "cannot become the user with id " + std::to_string(logs.st_uid) +
                                          ", whose " + instance.logs().string() +
                                          " is: " + std::strerror(errno));
}
