/* SPDX-License-Identifier: Apache-2.0 */
/* video_of PHOTO [OUT]: says where a photo's video is, and copies it into OUT. */
#include <metadata_utils/metadata_utils.h>

#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

static int failed(char const* path) {
    fprintf(stderr, "%s: %s\n", path, mu_last_error());
    return mu_last_error_code();
}

int main(int argc, char** argv) {
    if (argc < 2) {
        fputs("usage: video_of PHOTO [OUT]\n", stderr);
        return 2;
    }
    mu_photo* photo = NULL;
    mu_video video;
    int code = mu_open_path(argv[1], 0, &photo);
    if (code == MU_OK)
        code = mu_locate_video(photo, &video);
    if (code != MU_OK) {
        failed(argv[1]);
        mu_close(photo);
        return code;
    }
    if (video.status == MU_STATUS_SOUND)
        printf("%u bytes at %u, %s\n", (unsigned)video.size, (unsigned)video.position, video.mime_type);
    else
        printf("no video%s%s\n", *video.reason ? ": " : "", video.reason);
    if (argc > 2 && video.status == MU_STATUS_SOUND) {
        int const fd = open(argv[2], O_RDWR | O_CREAT | O_EXCL, 0666);
        code = fd < 0 ? MU_WRITE_FAILED : mu_copy_video_to_descriptor(photo, fd);
        if (fd < 0)
            perror(argv[2]);
        else if (code != MU_OK)
            failed(argv[2]);
        if (fd >= 0)
            close(fd);
    }
    mu_close(photo);
    return code;
}
