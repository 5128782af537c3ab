// The guide of fleets against the rules for Prometheus and the manifest for Kubernetes.

#include <gtest/gtest.h>

#include <regex>
#include <set>
#include <string>

#include "Repository.h"

namespace {

std::set<std::string> matches(const std::string& text, const std::string& expression) {
    const std::regex pattern(expression);
    std::set<std::string> found;
    for (std::sregex_iterator it(text.begin(), text.end(), pattern); it != std::sregex_iterator(); ++it)
        found.insert((*it)[1]);
    return found;
}

class FleetsTest : public testing::Test {
  protected:
    const std::string m_guide = repository::read(repository::root() / "docs/fleets.md");
    const std::string m_rules =
        repository::read(repository::root() / "packaging/prometheus/velbootstrapservice.rules.yml");
};

TEST_F(FleetsTest, EachMetricOfTheRulesIsDescribed) {
    const std::set<std::string> described = matches(m_guide, "\n\\| `(velbootstrap_[a-z_]+)");
    EXPECT_GE(described.size(), 14U);
    const std::set<std::string> used = matches(m_rules, "\\b(velbootstrap_[a-z_]+)");
    EXPECT_GE(used.size(), 8U);
    for (const std::string& metric : used)
        EXPECT_EQ(described.count(metric), 1U) << metric;
}

TEST_F(FleetsTest, TheMetricsDescribedAreThoseWritten) {
    const std::string source = repository::read(repository::root() / "tools/CTLMetrics.cpp");
    EXPECT_EQ(matches(m_guide, "\n\\| `(velbootstrap_[a-z_]+)"),
              matches(source, "\"(velbootstrap_[a-z_]+)\""));
}

TEST_F(FleetsTest, EachAlertIsDescribedAndNoOther) {
    EXPECT_EQ(matches(m_guide, "\n\\| `(Velbootstrap[A-Za-z]+)`"), matches(m_rules, "alert: ([A-Za-z]+)"));
}

}  // namespace
