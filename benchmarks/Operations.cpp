// SPDX-License-Identifier: Apache-2.0
// One operation of the library at a time, through its shared object as clients use it: operations COUNT NAME FILE...
// Prints a line of JSON for each of COUNT runs: seconds of wall and of CPU time that the operation itself took, without
// what brought its files into place, and KiB by which it raised the process's peak memory.

#include "support/HeicBuilder.h"

#include "MotionPhotoEdit.h"
#include "MotionPhotoInfo.h"
#include "QRTEdit.h"
#include "XMPInfo.h"
#include "io/HEIFMetaWriter.h"

#include <android/log.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

using namespace android::lumo;

namespace {

using Arguments = std::vector<std::string>;

std::shared_ptr<MediaFile> reading(std::string const& path) {
    return std::make_shared<MediaFile>(path, "r");
}

std::shared_ptr<MediaFile> writing(std::string const& path) {
    return std::make_shared<MediaFile>(path, "rw");
}

void createEmpty(std::string const& path) {
    unlink(path.c_str());
    close(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0666));
}

/// What cat does between regular files.
void concatenate(Arguments const& sources, std::string const& out) {
    int const target = open(out.c_str(), O_WRONLY);
    for (auto const& path : sources) {
        int const source = open(path.c_str(), O_RDONLY);
        while (copy_file_range(source, nullptr, target, nullptr, SSIZE_MAX & ~0xFFFL, 0) > 0)
            continue;
        close(source);
    }
    close(target);
}

std::shared_ptr<MotionPhotoEdit> editOf(std::string const& photo) {
    return MotionPhotoInfo::parse(reading(photo))->edit();
}

std::string nameOf(int i) {
    return "record " + std::to_string(i);
}

/// Field by field, so that nothing but the last argument differs between the runs for different counts.
void putRecords(QRTEdit& edit, int count) {
    for (int i = 0; i < count; ++i)
        edit.putData(4000 + i % 7, nameOf(i), std::string("value"));
}

size_t getRecords(QRTInfo& view, int count) {
    size_t bytes = 0;
    for (int i = 0; i < count; ++i)
        bytes += view.getData(nameOf(i)).size();
    return bytes;
}

struct Operation {
    /// Brings files into place, outside the measurement, and answers what is to be measured.
    std::function<std::function<void()>(Arguments const&)> prepare;
};

std::function<void()> onCopy(Arguments const& files, std::function<void(std::string const&)> const& change) {
    createEmpty(files.back());
    concatenate({files[0]}, files.back());
    return [change, path = files.back()] { change(path); };
}

/// What the last run left there goes first: letting go of its blocks is no work of this one.
std::function<void()> intoEmpty(std::string const& out, std::function<void()> const& make) {
    createEmpty(out);
    return make;
}

/// Files: the sources, then the file that is made or, for operations in place, the copy of the first that is changed.
std::map<std::string, Operation> const OPERATIONS = {
    {"copy", {[](Arguments const& a) {
         return intoEmpty(a.back(), [=] { concatenate({a.begin(), a.end() - 1}, a.back()); });
     }}},
    {"parse", {[](Arguments const& a) {
         return [=] {
             auto const photo = MotionPhotoInfo::parse(reading(a[0]));
             if (photo->getVideoSize() + photo->getXMPInfo()->getPropertyNames().size() == 0)
                 throw std::runtime_error("nothing read of " + a[0]);
         };
     }}},
    {"add", {[](Arguments const& a) {
         return intoEmpty(a[2], [=] {
             auto const edit = editOf(a[0]);
             edit->addVideo(reading(a[1]));
             edit->commit(writing(a[2]));
         });
     }}},
    {"replace", {[](Arguments const& a) {
         return intoEmpty(a[2], [=] {
             auto const edit = editOf(a[0]);
             edit->addVideo(reading(a[1]));
             edit->commit(writing(a[2]));
         });
     }}},
    {"replace-in-place", {[](Arguments const& a) {
         return onCopy(a, [video = a[1]](std::string const& path) {
             auto const edit = MotionPhotoInfo::parse(writing(path))->edit();
             edit->addVideo(reading(video));
             edit->commit();
         });
     }}},
    {"remove", {[](Arguments const& a) {
         return intoEmpty(a[1], [=] {
             auto const out = writing(a[1]);
             auto const edit = editOf(a[0]);
             edit->removeVideo(nullptr);
             edit->commit(out);
         });
     }}},
    {"record-in-place", {[](Arguments const& a) {
         return onCopy(a, [](std::string const& path) {
             auto const edit = MotionPhotoInfo::parse(writing(path))->edit();
             edit->addQRTData(4001, "Benchmark", ByteBuffer(std::vector<uint8_t>(4)));
             edit->commit();
         });
     }}},
    {"room",
     {[](Arguments const& a) { // more than any room left behind a packet
         return onCopy(a, [](std::string const& path) { HEIFMetaWriter(writing(path)).reserveXMP(60'000); });
     }}},
    {"records-put", {[](Arguments const& a) {
         createEmpty(a[2]);
         concatenate({a[0]}, a[2]);
         return [edit = QRTInfo::parse(writing(a[2]))->edit(), count = std::stoi(a[1])] { putRecords(*edit, count); };
     }}},
    {"records-get", {[](Arguments const& a) {
         return [view = QRTInfo::parse(reading(a[2])), count = std::stoi(a[1])] {
             if (getRecords(*view, count) == 0)
                 throw std::runtime_error("no records");
         };
     }}},
    {"records-make", {[](Arguments const& a) {
         return onCopy(a, [count = std::stoi(a[1])](std::string const& path) {
             auto const edit = QRTInfo::parse(writing(path))->edit();
             putRecords(*edit, count);
             edit->commit();
         });
     }}},
    {"records-one", {[](Arguments const& a) {
         return onCopy(a, [](std::string const& path) {
             auto const edit = QRTInfo::parse(writing(path))->edit();
             edit->putData(4001, "Benchmark", std::string("four"));
             edit->commit();
         });
     }}},
    {"make-heic", {[](Arguments const& a) { // tiles a side, bytes of a tile, file
         return [=] {
             auto const side = static_cast<unsigned>(std::stoul(a[0]));
             std::ofstream(a[2], std::ios::binary)
                 << test::buildHeic({.rows = side, .columns = side, .filler = std::stoul(a[1])});
         };
     }}},
};

/// Of this process since it was started, and not of the one that started it.
long peakKiB() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("VmHWM:"))
            return std::stol(line.substr(6));
    }
    throw std::runtime_error("/proc/self/status tells no peak");
}

double cpuSeconds() {
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

void run(Operation const& operation, Arguments const& files) {
    auto const action = operation.prepare(files);
    std::ofstream("/proc/self/clear_refs") << '5'; // the peak so far is forgotten
    long const before = peakKiB();
    double const cpu = cpuSeconds();
    auto const start = std::chrono::steady_clock::now();
    action();
    std::chrono::duration<double> const wall = std::chrono::steady_clock::now() - start;
    double const used = cpuSeconds() - cpu;
    std::printf("{\"wall\": %.9f, \"cpu\": %.9f, \"peak\": %ld}\n", wall.count(), used, peakKiB() - before);
}

} // namespace

int main(int argc, char** argv) {
    __android_log_set_minimum_priority(ANDROID_LOG_SILENT);
    try {
        if (argc < 4)
            throw std::runtime_error("operations COUNT NAME FILE...");
        auto const& operation = OPERATIONS.at(argv[2]);
        for (int i = 0; i < std::stoi(argv[1]); ++i)
            run(operation, Arguments(argv + 3, argv + argc));
    } catch (std::exception const& e) {
        std::fprintf(stderr, "operations: %s\n", e.what());
        return 1;
    }
}
