// Makes the frame target's seed corpus from the text seeds: each text parsed and
// serialized whole, and each child of its root serialized as a subtree frame;
// plus the worked example of docs/format.md and its legacy-layout twin, which
// no writer of this library produces. Run by hand when the text seeds change:
//   kvx_seed_frames fuzz/corpus/text fuzz/corpus/frame
// Owns only the files it writes.
#include <kvx/KVXBinary.h>
#include <kvx/KVXMessage.h>
#include <kvx/KVXMsgFactory.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

struct MessageRelease {
    void operator()(KVX::KVXMessage *message) const {
        if (message != nullptr)
            message->destroy();
    }
};
typedef std::unique_ptr<KVX::KVXMessage, MessageRelease> MessagePtr;

void write(fs::path const &file, char const *bytes, std::size_t length) {
    std::ofstream out(file, std::ios::binary | std::ios::trunc);
    out.write(bytes, static_cast<std::streamsize>(length));
    std::printf("%s: %zu bytes\n", file.string().c_str(), length);
}

// Root 1008 "node" with 1010 "id" = 42 (docs/format.md), and the same in the
// legacy layout, where the 4-byte value takes 24 bytes.
void writeHandMade(fs::path const &out) {
    unsigned char const current[80] = {
        0x98, 0xBA, 0xDC, 0xFE, 0x28, 0x00, 0x00, 0x02, 0xF0, 0x03, 0x00, 0x00, 0x32, 0x00,
        0x00, 0x00, 0x10, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0xF2, 0x03, 0x00, 0x00,
        0x01, 0x00, 0x00, 0x00, 0x04, 0x00, 0x00, 0x00, 0x2A, 0x00, 0x00, 0x00, 0xF2, 0x03,
        0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x03, 0x00, 0x00, 0x00, 'i',  'd',  0x00, 0x00,
        0xF0, 0x03, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x05, 0x00, 0x00, 0x00, 'n',  'o',
        'd',  'e',  0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00};
    write(out / "worked_example.frame", reinterpret_cast<char const *>(current), sizeof current);
    unsigned char const legacy[88] = {
        0x98, 0xBA, 0xDC, 0xFE, 0x28, 0x00, 0x00, 0x00, 0xF0, 0x03, 0x00, 0x00, 0x32, 0x00, 0x00,
        0x00, 0x18, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0xF2, 0x03, 0x00, 0x00, 0x01, 0x00,
        0x00, 0x00, 0x04, 0x00, 0x00, 0x00, 0x2A, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
        0x00, 0x00, 0x00, 0xF2, 0x03, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x03, 0x00, 0x00, 0x00,
        'i',  'd',  0x00, 0x00, 0xF0, 0x03, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x05, 0x00, 0x00,
        0x00, 'n',  'o',  'd',  'e',  0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00};
    write(out / "worked_example_legacy.frame", reinterpret_cast<char const *>(legacy),
          sizeof legacy);
}

void writeFromText(fs::path const &textFile, fs::path const &out) {
    std::ifstream in(textFile, std::ios::binary);
    std::string const text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    MessagePtr message(KVX::KVXMsgFactory::createNew());
    if (message->fromText(text.c_str()) != 0) {
        std::printf("%s: not parsed, no frame\n", textFile.string().c_str());
        return;
    }
    std::string const stem = textFile.stem().string();
    char *frame = nullptr;
    int length = 0;
    if (message->serialize(&frame, &length, nullptr, 40500) == 0)
        write(out / (stem + ".frame"), frame, static_cast<std::size_t>(length));
    std::free(frame);
    std::unique_ptr<KVX::KVXMessageIterator> cursor(message->newIterator());
    int child = 0;
    for (int more = cursor->firstChild(); more == 0; more = cursor->nextSibling()) {
        if (cursor->serializeFromChild(&frame, &length) == 0)
            write(out / (stem + "_child" + std::to_string(child) + ".frame"), frame,
                  static_cast<std::size_t>(length));
        std::free(frame);
        frame = nullptr;
        ++child;
    }
}

} // namespace

int main(int argc, char **argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: %s <text seed folder> <frame seed folder>\n", argv[0]);
        return 2;
    }
    (void)KVX::KVXMessage::getFactory();
    fs::path const out(argv[2]);
    fs::create_directories(out);
    writeHandMade(out);
    for (fs::directory_iterator it(argv[1]), end; it != end; ++it) {
        if (it->is_regular_file())
            writeFromText(it->path(), out);
    }
    return 0;
}
