// Any bytes as the Java preferences: the vendor, against the rules written down plainly.

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <string>

#include "FuzzService.h"
#include "ZORPropertyInserter.h"
#include "ZORStartupProperties.h"

using FuzzTarget::require;
using FuzzTarget::requireSame;
using FuzzTarget::untilZero;

namespace {

constexpr std::size_t kLongestLine = 4095;

struct Preferences {
    std::string home;
    std::string vendor;
};

std::string takeShortLine(std::string& text) {
    const std::size_t feed = text.find('\n');
    const std::size_t length =
        std::min({feed == std::string::npos ? feed : feed + 1, text.size(), kLongestLine});
    std::string line = text.substr(0, length);
    text.erase(0, length);
    return untilZero(line);
}

// The value begins at a fixed place, wherever in the line its key is.
Preferences plainPreferences(std::string text) {
    Preferences preferences;
    while (!text.empty()) {
        std::string line = takeShortLine(text);
        if (line.find("java_home=") != std::string::npos) {
            line.pop_back();
            preferences.home = line.size() > 10 ? line.substr(10) : "";
        } else if (line.find("java_vendor=") != std::string::npos) {
            preferences.vendor = line.substr(12);
        }
    }
    return preferences;
}

// One can change into the home, which is a folder then.
std::string plainVendor(const Preferences& preferences) {
    std::error_code ignored;
    if (!std::filesystem::is_directory(preferences.home, ignored)) return "";
    if (preferences.vendor.find("Sun") != std::string::npos) return "Sun";
    return preferences.vendor.find("Orv") != std::string::npos ? "Orv" : "";
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzService::logEverythingToNowhere();
    const FuzzFolder folder;
    const std::string text = FuzzTarget::textOf(data, size);
    folder.write("temp/zor.prefs", text);
    ZORPropertyInserter& properties = *ZORPropertyInserter::getInstance();
    properties.add("temp", "../temp");
    properties.add("java_vendor", "unset");
    const FuzzTarget::NothingLeftOpen check;
    const ZORStartupProperties startup("Default");
    startup.findJavaVendor();
    requireSame(plainVendor(plainPreferences(text)), properties.get("java_vendor"),
                "the vendor is as the rules say");
    requireSame(folder.path("bin"), std::filesystem::current_path().string(), "the working directory stays");
    return 0;
}
