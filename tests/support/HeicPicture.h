// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <libheif/heif.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

/// A HEIC file as libheif sees it, a decoder that shares no code with ours.
namespace android::lumo::test {

namespace detail {

using Handle = std::unique_ptr<heif_image_handle, decltype(&heif_image_handle_release)>;

inline void require(heif_error const& error) {
    if (error.code != heif_error_Ok)
        throw std::runtime_error(std::string("libheif: ") + error.message);
}

/// RGB rows, with the alpha that another item holds.
inline std::string decode(heif_image_handle* handle) {
    heif_image* decoded = nullptr;
    require(heif_decode_image(handle, &decoded, heif_colorspace_RGB, heif_chroma_interleaved_RGBA, nullptr));
    std::unique_ptr<heif_image, decltype(&heif_image_release)> const image(decoded, heif_image_release);
    int stride = 0;
    auto const* pixels = heif_image_get_plane_readonly(image.get(), heif_channel_interleaved, &stride);
    auto const width = static_cast<size_t>(heif_image_get_width(image.get(), heif_channel_interleaved));
    int const height = heif_image_get_height(image.get(), heif_channel_interleaved);
    std::string rows = std::to_string(width) + ' ' + std::to_string(height) + '\n';
    for (int y = 0; y < height; ++y)
        rows.append(reinterpret_cast<char const*>(pixels) + static_cast<ptrdiff_t>(y) * stride, width * 4);
    return rows;
}

} // namespace detail

/// The primary image and its thumbnail. Throws std::runtime_error when libheif refuses the file.
inline std::vector<std::string> decodedImages(std::string const& file) {
    std::unique_ptr<heif_context, decltype(&heif_context_free)> const context(heif_context_alloc(), heif_context_free);
    detail::require(heif_context_read_from_memory_without_copy(context.get(), file.data(), file.size(), nullptr));
    heif_image_handle *handle = nullptr, *small = nullptr;
    detail::require(heif_context_get_primary_image_handle(context.get(), &handle));
    detail::Handle const primary(handle, heif_image_handle_release);
    std::vector<std::string> images{detail::decode(handle)};
    heif_item_id id = 0;
    if (heif_image_handle_get_list_of_thumbnail_IDs(handle, &id, 1) == 1) {
        detail::require(heif_image_handle_get_thumbnail(handle, id, &small));
        images.push_back(detail::decode(detail::Handle(small, heif_image_handle_release).get()));
    }
    return images;
}

} // namespace android::lumo::test
