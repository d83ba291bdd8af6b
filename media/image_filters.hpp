// A chain of video filters for single pictures.
#pragma once

#include <string>
#include <vector>

#include "image.hpp"
#include "session.hpp"
#include "video_chain.hpp"

namespace kel_tool {

class picture_filters {
  public:
    // Filters as they are written on the command line. Throws failure.
    explicit picture_filters(const std::vector<std::string>& texts);

    // The picture, or a new one that went through the filters. Throws failure.
    [[nodiscard]] picture apply(session& session, picture from) const;

  private:
    std::vector<chosen_filter> filters_;
};

}  // namespace kel_tool
