#include "CTLMetrics.h"

#include <sys/types.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string_view>
#include <vector>

#include "CTLNewFile.h"
#include "CTLStatus.h"
#include "CTLText.h"

namespace {

using Value = std::optional<std::int64_t>;

struct ChildMetric {
    const char* name;
    const char* type;
    const char* help;
    Value (*value)(const CTLStatus& status, const CTLChildStatus& child);
};

struct ServiceMetric {
    const char* name;
    const char* help;
    Value (*value)(const CTLStatus& status);
};

Value asValue(const std::optional<std::time_t>& time) {
    return time ? Value(*time) : std::nullopt;
}

constexpr ServiceMetric kServiceMetrics[] = {
    {"velbootstrap_up", "Whether the process of the PID file is proved to be the service.",
     [](const CTLStatus& status) -> Value { return status.daemon.isRunning() ? 1 : 0; }},
    {"velbootstrap_start_time_seconds", "When the service was started, seconds since the epoch.",
     [](const CTLStatus& status) -> Value {
         return status.daemon.isRunning() ? Value(status.daemon.process()->started) : std::nullopt;
     }},
    {"velbootstrap_log_last_line_timestamp_seconds", "When the service logged last, seconds since the epoch.",
     [](const CTLStatus& status) { return asValue(status.lastLogLine); }},
    {"velbootstrap_status_timestamp_seconds", "When these metrics were made, seconds since the epoch.",
     [](const CTLStatus& status) -> Value { return status.asked; }},
};

// Of a process that cannot be told nothing is said, neither that it is there nor that it is not.
constexpr ChildMetric kChildMetrics[] = {
    {"velbootstrap_child_up", "gauge", "Whether the child's process is there.",
     [](const CTLStatus& status, const CTLChildStatus& child) -> Value {
         if (child.process) return 1;
         return status.isMissing(child) ? Value(0) : std::nullopt;
     }},
    {"velbootstrap_child_start_time_seconds", "gauge", "When the child was started, seconds since the epoch.",
     [](const CTLStatus&, const CTLChildStatus& child) -> Value {
         return child.process ? Value(child.process->started) : std::nullopt;
     }},
    {"velbootstrap_child_resident_memory_bytes", "gauge", "Memory of the child's process that is resident.",
     [](const CTLStatus&, const CTLChildStatus& child) -> Value {
         return child.process ? Value(child.process->memoryBytes) : std::nullopt;
     }},
    {"velbootstrap_child_open_fds", "gauge", "Open descriptors of the child's process.",
     [](const CTLStatus&, const CTLChildStatus& child) -> Value {
         return child.descriptors ? Value(*child.descriptors) : std::nullopt;
     }},
    {"velbootstrap_child_threads", "gauge", "Threads of the child's process.",
     [](const CTLStatus&, const CTLChildStatus& child) -> Value {
         return child.process ? Value(child.process->threads) : std::nullopt;
     }},
    {"velbootstrap_child_restarts_total", "counter",
     "Restarts of the child since the service was started, by its log.",
     [](const CTLStatus&, const CTLChildStatus& child) -> Value { return child.restarts; }},
    {"velbootstrap_child_restarts_last_hour", "gauge",
     "Restarts of the child within the last hour, by the log.",
     [](const CTLStatus&, const CTLChildStatus& child) -> Value { return child.restartsLastHour; }},
    {"velbootstrap_child_restarts_last_day", "gauge",
     "Restarts of the child within the last day, by the log.",
     [](const CTLStatus&, const CTLChildStatus& child) -> Value { return child.restartsLastDay; }},
    {"velbootstrap_child_last_failed_ping_timestamp_seconds", "gauge",
     "When a ping of the child failed last, by the log, seconds since the epoch.",
     [](const CTLStatus&, const CTLChildStatus& child) { return asValue(child.lastFailedPing); }},
    {"velbootstrap_child_certificate_expiry_timestamp_seconds", "gauge",
     "When the first certificate of the child's chain ends, seconds since the epoch.",
     [](const CTLStatus&, const CTLChildStatus& child) { return asValue(child.expiry()); }},
};

std::string label(const char* name, const std::string& value) {
    std::string text = std::string(name) + "=\"";
    for (const char byte : CTLText::printable(value)) {
        if (byte == '\\' || byte == '"') text += '\\';
        text += byte;
    }
    return text + "\"";
}

std::string head(const std::string& name, const std::string& type, const std::string& help) {
    return "# HELP " + name + " " + help + "\n# TYPE " + name + " " + type + "\n";
}

std::string sample(const std::string& name, const std::string& labels, std::int64_t value) {
    return name + "{" + labels + "} " + std::to_string(value) + "\n";
}

// A document may give two children one name, a metric may not have the same labels twice.
std::vector<std::string> labelsOfChildren(const CTLStatus& status) {
    std::map<std::string, int> times;
    std::vector<std::string> labels;
    for (const CTLChildStatus& child : status.children) {
        const int time = ++times[child.name];
        const std::string name = time == 1 ? child.name : child.name + "#" + std::to_string(time);
        labels.push_back(label("folder", status.folder) + "," + label("child", name));
    }
    return labels;
}

std::string textOf(const ChildMetric& metric, const CTLStatus& status,
                   const std::vector<std::string>& labels) {
    std::string samples;
    for (std::size_t index = 0; index < status.children.size(); ++index) {
        const Value value = metric.value(status, status.children[index]);
        if (value) samples += sample(metric.name, labels[index], *value);
    }
    return samples.empty() ? samples : head(metric.name, metric.type, metric.help) + samples;
}

}  // namespace

namespace CTLMetrics {

std::string text(const CTLStatus& status) {
    std::string all;
    for (const ServiceMetric& metric : kServiceMetrics) {
        const Value value = metric.value(status);
        if (value)
            all += head(metric.name, "gauge", metric.help) +
                   sample(metric.name, label("folder", status.folder), *value);
    }
    const std::vector<std::string> labels = labelsOfChildren(status);
    for (const ChildMetric& metric : kChildMetrics)
        all += textOf(metric, status, labels);
    return all;
}

void write(const std::string& path, const std::string& text) {
    constexpr mode_t kForAllToRead = 0644;
    CTLNewFile file(path);
    file.write(text);
    file.take(kForAllToRead);
}

}  // namespace CTLMetrics
