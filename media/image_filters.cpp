#include "image_filters.hpp"

#include "filter_spec.hpp"

namespace kel_tool {
namespace {

std::vector<chosen_filter> choose(const std::vector<std::string>& texts) {
    std::vector<filter_spec> specs;
    specs.reserve(texts.size());
    for (const std::string& text : texts) specs.push_back(parse_filter_spec(text));
    return choose_filters(specs);
}

}  // namespace

picture_filters::picture_filters(const std::vector<std::string>& texts) : filters_(choose(texts)) {}

picture picture_filters::apply(session& session, picture from) const {
    if (filters_.empty()) return from;
    session.need_gles();
    const auto& video = from.slice.spec.video;
    picture made = make_picture(session, video.width, video.height, 0);
    video_chain chain(session, filters_);
    chain.draw(from.slice, made.slice, {0, 0, video.width, video.height});
    return made;
}

}  // namespace kel_tool
