// The writer's events, and the making of filters when something fails.
#include "mmedia/media_fixture.hpp"

namespace {

using namespace kel_test;

TEST_F(Filters, WriterPostsEvents) {
    const auto& events = table_of<mmf_event_interface>(writer, "MediaEventProducer");
    LogCapture log;
    int type = 0, cursor = 0;
    EXPECT_EQ(events.iterate_events(writer, &type, &cursor), 0);
    EXPECT_EQ(type, 1);
    EXPECT_EQ(events.iterate_events(writer, &type, &cursor), -1);
    EXPECT_TRUE(log.has(7, "kel_writer iterating through our postable event returning type = 0x1 MM_EV_ERR"));
    EXPECT_EQ(events.set_event_poster(writer, nullptr), 0);
    EXPECT_TRUE(log.has_starting(7, "kel_writer registering the "));
    EXPECT_EQ(events.enable_event(writer, 2), -1);
    EXPECT_EQ(events.enable_event(writer, 1), 0);
    EXPECT_TRUE(log.has(7, "kel_writer a client is interested in event MM_EV_ERR 0x1"));
    EXPECT_EQ(table_of<mmf_seeker_interface>(writer, "MediaSeeker").get_unit(writer), 2);
}

TEST_F(Filters, CreationFailsWhole) {
    const auto points = framework_fault_points();
    for (const auto& row : {std::pair{&kel_create_reader_filter, "kel_reader"},
                            std::pair{&kel_create_writer_filter, "kel_writer"}}) {
        const auto make = row.first;
        const char* const who = row.second;
        int locks = 0;
        sweep_faults(points, [&](const Fault* fault, LogCapture& log) {
            kel_filter* filter = make(nullptr);
            EXPECT_EQ(filter == nullptr, fault != nullptr);
            if (fault && fault->function == "pthread_mutex_init" && fault->occurrence <= 3) {
                ++locks;
                const bool status = fault->occurrence == 1;
                const std::string which = status ? "status" : "channel";
                const bool own =
                    log.has(2, std::string(who) + ": Unable to create " + which + " mutex. (err = 12)");
                EXPECT_TRUE(own) << fault->occurrence;
            }
            MmDestroyFilter(filter);
        });
        EXPECT_EQ(locks, make == kel_create_reader_filter ? 3 : 1);
    }
    set_integer(writer, "AudioChannelCount", 2);
    set_integer(writer, "VideoChannelCount", 2);
    Faults faults;
    const int calls = 1 + 4 * 2;
    for (int point = 1; point <= calls; ++point) {
        faults.fail_call(point);
        int cursor = 0;
        EXPECT_EQ(inputs().iterate_inputs(writer, &cursor), nullptr) << point;
        EXPECT_EQ(faults.holdings().blocks, 0);
    }
    faults.fail_call(0);
    int cursor = 0;
    EXPECT_NE(inputs().iterate_inputs(writer, &cursor), nullptr);
}

}  // namespace
