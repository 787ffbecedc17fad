// One read-write file stream driven beside a std::string and a position:
// writes (also past the end, which fills the gap with zero bytes), reads,
// seeks from the start, the position and the end, and new lengths that cut
// or extend, and a close and reopen of the file, which must then hold the
// model. After each step the stream's length and position must be the
// model's, and what a read gives the model's bytes. Shared by the
// random-sequence test and the fuzz target.
//
//     keel::filestreammodel::DriverC driver("/tmp/dir/file");
//     std::string broken = driver.step(operation, argument);  // empty: agree
#ifndef KEEL_TESTS_TESTING_FILESTREAMMODEL_H
#define KEEL_TESTS_TESTING_FILESTREAMMODEL_H

#include <stdint.h>

#include <algorithm>
#include <memory>
#include <string>

#include <keel/filename.h>

#include "files/filestream.h"
#include "testing/filetext.h"

namespace keel {
namespace filestreammodel {

class DriverC {
public:
    explicit DriverC(const std::string& path) : path(path) { open(FileStreamC::CreateOrTruncate); }

    std::string step(uint32_t operation, uint32_t argument) {
        if (!stream) return "open";
        switch (operation % 5) {
        case 0: {
            std::string bytes(argument % 300, '\0');
            for (char& c : bytes) c = static_cast<char>(++counter);
            if (stream->write(bytes.data(), static_cast<int32_t>(bytes.size())) != 0)
                return "write";
            size_t at = static_cast<size_t>(position);
            // Nothing written extends nothing, even past the end.
            if (!bytes.empty()) model.resize(std::max(model.size(), at + bytes.size()), '\0');
            model.replace(std::min(at, model.size()), bytes.size(), bytes);
            position += static_cast<int64_t>(bytes.size());
            break;
        }
        case 1: {
            char buffer[400];
            uint32_t want = argument % sizeof buffer;
            int32_t got = stream->read(buffer, want);
            if (got != std::min<int64_t>(want, std::max<int64_t>(0, length() - position)))
                return "read count";
            if (model.compare(static_cast<size_t>(std::min(position, length())), got, buffer, got))
                return "read bytes";
            position += got;
            break;
        }
        case 2: {
            // Never before the start: the offset back is at most the base.
            int32_t whence = static_cast<int32_t>(operation / 8 % 3);
            const int64_t bases[] = {0, position, length()};
            int64_t base = bases[whence];
            int64_t back =
                static_cast<int64_t>(argument * 2654435761u % (static_cast<uint64_t>(base) + 1));
            int64_t offset = static_cast<int64_t>(argument % 1200) - back;
            if (stream->seek(offset, whence) != base + offset) return "seek";
            position = base + offset;
            break;
        }
        case 3: {
            int64_t length = argument % 2000;
            if (stream->setLength(length) != 0) return "setLength";
            model.resize(static_cast<size_t>(length), '\0');
            break;
        }
        default:  // what was written is on the disk, and stays there
            stream.reset();
            if (testkit::readFileAt(path) != model) return "file contents";
            open(FileStreamC::OpenExisting);
            if (!stream) return "reopen";
            position = 0;
            break;
        }
        if (stream->getLength() != length()) return "length";
        if (stream->getPosition() != position) return "position";
        return "";
    }

private:
    int64_t length() const { return static_cast<int64_t>(model.size()); }
    void open(uint32_t creation) {
        FileNameC name(StringC(path.c_str(), "utf8"));
        stream.reset(FileStreamC::open(&name, creation, FileStreamC::ReadWrite,
                                       FileStreamC::Exclusive, false));
    }

    std::string path;
    std::unique_ptr<FileStreamC> stream;
    std::string model;
    int64_t position = 0;
    uint8_t counter = 0;
};

}  // namespace filestreammodel
}  // namespace keel

#endif
