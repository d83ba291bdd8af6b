// Owning handles of the library's objects, for the program's own code.
#pragma once

#include <kel.h>
#include <mm/mmf.h>

#include <memory>

namespace kel_tool {

// Deletes through a function of the library, whatever the function returns.
template <auto destroy>
struct deleter {
    template <typename T>
    void operator()(T* object) const {
        destroy(object);
    }
};

// The same for functions that take the handle's address and null it.
template <auto destroy>
struct address_deleter {
    template <typename T>
    void operator()(T* object) const {
        destroy(&object);
    }
};

using graph_handle = std::unique_ptr<mm_graph, deleter<MmDestroyGraph>>;
using pool_handle = std::unique_ptr<kel_buffer_pool, address_deleter<kel_destroy_buffer_pool>>;
using buffer_handle = std::unique_ptr<kel_buffer, deleter<kel_release_buffer>>;
using converter_handle = std::unique_ptr<kel_audio_converter, address_deleter<kel_destroy_audio_converter>>;
using mixer_handle = std::unique_ptr<kel_audio_mixer, address_deleter<kel_destroy_audio_mixer>>;
using audio_filter_handle = std::unique_ptr<kel_audio_filter, deleter<kel_destroy_audio_filter>>;
using texture_handle = std::unique_ptr<kel_texture, address_deleter<kel_gles_destroy_texture>>;
using chain_handle = std::unique_ptr<kel_video_filter_chain, address_deleter<kel_destroy_video_filter_chain>>;

}  // namespace kel_tool
