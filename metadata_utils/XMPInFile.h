// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "CheckedFile.h"
#include "ErrorAt.h"
#include "MediaFile.h"
#include "XMPPacket.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace android::lumo {

/// The XMP of a file as it was last read or written here: what a commit compares with the file before it writes over
/// it, so that nobody else's changes are lost.
///
/// Every packet of the file counts, in file order and without the blanks behind it; room that holds nothing counts for
/// nothing.
class XMPInFile {
public:
    /// The packet is one that this library has just written: nothing of it can be lost.
    void trust() { isKeepable = true; }

    /// Reads the file; a read the system refuses throws, it is never "no XMP".
    explicit XMPInFile(std::shared_ptr<MediaFile> const& source);

    /// The packet that the file's view answers from, the last one; empty when there is none.
    std::string const& packet() const;
    bool isThisFile(MediaFile const& other) const { return checked::isSameFile(*file, other); }

    /// Throws "changed since it was read" (CHANGED) when the file's packets are not those last seen, or when a commit
    /// that failed left the file in a state that the next one cannot mend.
    void requireUnchanged(ErrorAt at = ErrorAt());
    /// Throws CHANGED when a commit failed while it made room: nothing may be built on a picture that moved in part.
    void requireNotTorn(ErrorAt at = ErrorAt()) const;
    /// Throws CHANGED when a commit failed and a packet of `size` bytes does not fit where the last one stands: what is
    /// behind it may have moved in part, which no size tells.
    void requireRoomToRetry(std::function<size_t()> const& size, ErrorAt at = ErrorAt()) const;
    /// Throws (UNSUPPORTED) when an edit would lose something that the file's packets hold: what the toolkit has not
    /// taken over from the last one, or a property in which two packets differ.
    void requireKeepable(ErrorAt at = ErrorAt());
    size_t count() const { return blocks.size(); }
    /// What the file has for XMP, in front of other such places, as it was when requireUnchanged() last looked.
    struct Room {
        uint32_t size = 0;       ///< with what the container says of it
        uint32_t identifier = 0; ///< bytes of that
    };
    Room const& getRoom() const { return room; }
    /// Puts what only packets in front of the last one hold into the packet that will take the place of all of them.
    void mergeInto(XMPPacket& packet) const;
    /// The last packet, parsed; not to be changed.
    std::shared_ptr<XMPPacket> const& parsed();
    /// That is it: whoever has read the file has parsed packet().
    void noteParsed(std::shared_ptr<XMPPacket> const& packet) { last = packet; }
    /// Runs `commit`, which writes the packet through `handle` and leaves it in `text`. What a commit that throws had
    /// changed is remembered: only a packet half written over its predecessor can be written again.
    void write(MediaFile const& handle, std::string const& text, std::function<void()> const& commit);
    /// Makes `target` a copy of the whole file, over whatever a commit that failed has left there. Throws as
    /// requireUnchanged() and requireKeepable() do.
    void copyFileTo(std::shared_ptr<MediaFile> const& target);
    /// Whoever asked requireUnchanged() has opened room where the packet stood; what stands there now is known.
    void roomOpened();

private:
    struct Block {
        uint32_t position;
        uint32_t size; ///< of the room it stands in
        std::string text;
    };
    /// A property that only a packet in front of the last one holds.
    struct Other {
        std::shared_ptr<XMPPacket> packet;
        std::string schema;
        std::string name;
    };
    struct Found {
        std::vector<Block> blocks;
        Room room;
    };
    Found look() const;
    void take(Found found);
    void forget();
    bool isWhole(std::vector<Block> const& found) const;
    void addMergeable(std::shared_ptr<XMPPacket> const& other, std::vector<std::shared_ptr<XMPPacket>> const& known,
                      ErrorAt at);

    std::shared_ptr<MediaFile> file;
    std::vector<Block> blocks;
    Room room;
    std::shared_ptr<XMPPacket> last; ///< parsed when it is first asked for
    std::vector<Other> others;       ///< known once the packets are found mergeable, until one takes the place of all
    bool isKeepable = false;
    bool isInterrupted = false; ///< a commit began to write and failed
    bool isTorn = false;        ///< and its packet did not fit where the last one stood
    uint32_t sizeBefore = 0;    ///< of the file, when that commit began
};

} // namespace android::lumo
