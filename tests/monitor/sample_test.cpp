// Samples as records and as metrics.
#include "monitor/sample.h"

#include <gtest/gtest.h>

#include "monitor/changes.h"
#include "monitor/openmetrics.h"

namespace {

using namespace monitor;

Sample small(double time) {
    Sample sample;
    sample.monotonicTime = time;
    sample.addElement("g", 0);
    sample.addItem(sample.keep("g.a"), sample.keep(std::to_string(10 * time)));
    sample.addItem("g.b", "text");
    sample.addElement("gone", -1);
    sample.addElement("q", 0);
    sample.addItem("q.a", "1");
    sample.addItem("q.a", "2");
    return sample;
}

TEST(Samples, KeepWhatIsWanted) {
    Sample sample = small(1);
    const Sample former = sample;
    keepItems(sample, [](const Item& item) { return item.id == "g.b"; });
    ASSERT_EQ(sample.elements.size(), 2u);  // a failed element stays
    ASSERT_EQ(sample.items.size(), 1u);
    EXPECT_EQ(sample.itemsOf(sample.elements[0])[0].value, "text");
    EXPECT_TRUE(sample.itemsOf(sample.elements[1]).empty());
    EXPECT_EQ(former.itemsOf(former.elements[2])[1].value, "2");

    sample = former;
    keepItems(sample, [](const Item& item) { return item.value == "2"; });
    EXPECT_EQ(sample.itemsOf(sample.elements[1])[0].id, "q.a");
}

TEST(Samples, ChangesTellEqualIdentifiersApart) {
    Changes changes;
    changes.next(small(1));
    Sample later = small(3);
    std::vector<Change> found = changes.next(later);
    ASSERT_EQ(found.size(), 4u);
    EXPECT_EQ(found[0].perSecond(), 10);
    EXPECT_FALSE(found[1].number);
    EXPECT_EQ(found[2].difference, 0);
    EXPECT_EQ(found[3].difference, 0);
    later = small(2);
    later.freshConnection = true;
    found = changes.next(later);
    EXPECT_TRUE(found[0].fell && !found[0].difference && !found[0].perSecond());
}

TEST(Samples, MetricsOfSeveralStandTogether) {
    OpenMetrics metrics;
    metrics.add(small(1), {{"gateway", "one\"\n"}, {"site", "x"}});
    metrics.add(small(2), {{"gateway", "two"}, {"site", "x"}});
    const std::string text = metrics.text();
    EXPECT_NE(text.find("# TYPE gateway_q_a gauge\n"
                        "# HELP gateway_q_a The Gateway's statistic q.a.\n"
                        "gateway_q_a{gateway=\"one\\\"\\n\",site=\"x\",element=\"q\",id=\"q.a\"} 1\n"
                        "gateway_q_a{gateway=\"one\\\"\\n\",site=\"x\",element=\"q\",id=\"q.a\",repeated=\"2\"} 2\n"
                        "gateway_q_a{gateway=\"two\",site=\"x\",element=\"q\",id=\"q.a\"} 1\n"
                        "gateway_q_a{gateway=\"two\",site=\"x\",element=\"q\",id=\"q.a\",repeated=\"2\"} 2\n"
                        "# TYPE"),
              std::string::npos)
        << text;
    EXPECT_EQ(text.find("# EOF\n"), text.size() - 6);
    metrics = {};
    metrics.add(small(1), {});
    EXPECT_NE(metrics.text().find("gateway_q_a{element=\"q\",id=\"q.a\"} 1\n"), std::string::npos);
    EXPECT_NE(metrics.text().find("zulstat_open_seconds{} 0\n"), std::string::npos);
}

}  // namespace
