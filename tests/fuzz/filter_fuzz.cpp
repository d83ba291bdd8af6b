// Any bytes as a filter's text: what is read must be what a second, plain reading says.
#include <cstdint>
#include <cstdlib>

#include "gles/filter_text.hpp"
#include "gles/plain_filter_text.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    const std::string text = bytes.c_str();  // up to the first NUL, as the library is given it
    std::string unknown;
    const auto expected = kel_test::plain_filter(text, unknown);
    kel_video_filter* filter = kel::parse_video_filter(text);
    if ((filter != nullptr) != expected.has_value()) abort();
    if (!filter) return 0;
    kel_test::PlainFilter found = {
        filter->name, filter->description ? filter->description : "", filter->main, filter->source, {}};
    for (int i = 0; i < filter->num_params; ++i) found.params.push_back(kel_test::plain(*filter->params[i]));
    if (!(found == *expected)) abort();
    kel::free_video_filter(filter);
    return 0;
}
