// The tools themselves: a fault sweep that finds nothing would prove nothing.
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>
#include <kel.h>

#include "support/faults.hpp"

namespace kel_test {
namespace {

TEST(Faults, TellWhatIsLeftBehind) {
    static kel_context* kept = nullptr;
    EXPECT_NONFATAL_FAILURE(
        {
            Faults faults;
            const Holdings before = faults.holdings();
            kept = kel_create_context();
            EXPECT_EQ(faults.holdings(), before) << "left behind";
        },
        "left behind");
    kel_destroy_context(&kept);
}

}  // namespace
}  // namespace kel_test
