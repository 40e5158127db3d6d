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

inline std::string decodeRgb(heif_image_handle* handle) {
    heif_image* decoded = nullptr;
    require(heif_decode_image(handle, &decoded, heif_colorspace_RGB, heif_chroma_interleaved_RGB, nullptr));
    std::unique_ptr<heif_image, decltype(&heif_image_release)> const image(decoded, heif_image_release);
    int stride = 0;
    auto const* pixels = heif_image_get_plane_readonly(image.get(), heif_channel_interleaved, &stride);
    auto const width = static_cast<size_t>(heif_image_get_width(image.get(), heif_channel_interleaved));
    int const height = heif_image_get_height(image.get(), heif_channel_interleaved);
    std::string rows = std::to_string(width) + ' ' + std::to_string(height) + '\n';
    for (int y = 0; y < height; ++y)
        rows.append(reinterpret_cast<char const*>(pixels) + static_cast<ptrdiff_t>(y) * stride, width * 3);
    return rows;
}

template<class Count, class List, class Get>
void decodeRelated(heif_image_handle* primary, Count count, List list, Get get, std::vector<std::string>& images) {
    std::vector<heif_item_id> ids(static_cast<size_t>(count(primary)));
    list(primary, ids.data(), static_cast<int>(ids.size()));
    for (heif_item_id const id : ids) {
        heif_image_handle* handle = nullptr;
        require(get(primary, id, &handle));
        images.push_back(decodeRgb(Handle(handle, heif_image_handle_release).get()));
    }
}

} // namespace detail

/// RGB rows of the primary image, its thumbnails and its auxiliary images. Throws std::runtime_error when libheif
/// refuses the file.
inline std::vector<std::string> decodedImages(std::string const& file) {
    std::unique_ptr<heif_context, decltype(&heif_context_free)> const context(heif_context_alloc(), heif_context_free);
    detail::require(heif_context_read_from_memory_without_copy(context.get(), file.data(), file.size(), nullptr));
    heif_image_handle* handle = nullptr;
    detail::require(heif_context_get_primary_image_handle(context.get(), &handle));
    detail::Handle const primary(handle, heif_image_handle_release);
    std::vector<std::string> images{detail::decodeRgb(handle)};
    detail::decodeRelated(handle, heif_image_handle_get_number_of_thumbnails,
                          heif_image_handle_get_list_of_thumbnail_IDs, heif_image_handle_get_thumbnail, images);
    detail::decodeRelated(
        handle, [](auto const* image) { return heif_image_handle_get_number_of_auxiliary_images(image, 0); },
        [](auto const* image, auto* ids, int count) {
            return heif_image_handle_get_list_of_auxiliary_image_IDs(image, 0, ids, count);
        },
        heif_image_handle_get_auxiliary_image_handle, images);
    return images;
}

} // namespace android::lumo::test
