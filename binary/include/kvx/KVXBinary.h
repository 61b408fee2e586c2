// KVXBinary: the concrete message. Its whole content is one contiguous frame
// (see docs/format.md) that is at once its memory image and its wire form,
// plus three pending header values. Copies share one KVXBinaryInternals until
// a writer separates them. One thread at a time per message.
#ifndef KVX_KVXBINARY_H
#define KVX_KVXBINARY_H

#include <kvx/KVXMessage.h>

#include <string>

namespace KVX {

class KVXBinaryInternals;
class KVXBinaryIterator;
namespace Internal {
class TextParser;
class TextWriter;
class HeaderValues;
} // namespace Internal

class KVX_EXPORT KVXBinary : public KVXMessage {
public:
    // The protocol's name, "KVXBinary".
    static char const *const MessageType;
    // Text parser behaviour for an element that gets no id, copied by each new
    // instance: bit 1 (2) fails the parse, bit 0 (1) drops the element.
    static int Policy;

    KVXBinary();

    int init(char const *buffer, int length) override;
    // Null: the root "packet". An unknown name gives -1 and changes nothing.
    int create(char const *rootName = nullptr) override;
    int serialize(char *buffer, unsigned __int64 *size,
                  KVXMessageIterator const *from = nullptr) const override;
    int serialize(char **buffer, int *size, KVXMessageIterator const *from = nullptr,
                  int version = 40500) const override;
    int deserialize(KVXMessageIterator const *source, KVXMessageIterator *to) override;
    int deserialize(char const *buffer, int length, KVXMessageIterator *to = nullptr) override;

private:
    char *toText(KVXMessageIterator const *from, std::string const &namespaceBase,
                 int version) const override;

public:
    int fromText(char const *text, KVXMessageIterator *to = nullptr) override;
    KVXMessage *newMessage() const override;
    KVXMessageIterator const *newIterator() const override;
    KVXMessageIterator *newIterator() override;
    int getVersion(int &version) const override;
    int setVersion(int version) override;
    int getTime(__int64 &time) const override;
    int setTime(__int64 time) override;
    int getProgress(int &progress) const override;
    int setProgress(int progress) override;
    int getLog(int &log) const override;
    int setLog(int log) override;
    int getType(int &type) const override;
    int setType(int type) override;
    int getID(std::string &id) const override;
    int setID(std::string const &id, bool flag = false) override;
    int getPriority(int &priority) const override;
    int setPriority(int priority) override;
    int getUid(std::string &uid) const override;
    int setUid(std::string const &uid) override;
    int getTimeout(int &timeout) const override;
    int setTimeout(int timeout) override;
    int getTimeoutLimit(int &limit) const override;
    int setTimeoutLimit(int limit) override;
    int getSession(std::string &session) const override;
    int setSession(std::string const &session) override;
    int getSessionID(std::string &session) const override;
    int setSessionID(std::string const &session) override;
    char const *messageType() const override;

protected:
    ~KVXBinary() override;
    int saveChanges() const override;
    void assignInternals(KVXMessage const *other) override;
    int copyInternals() const override;
    void releaseInternals() override;

public:
    // Replaces the content by a fresh document whose root is element `id`,
    // a KindStructure container.
    virtual int create(int id);
    // Text of the message or of the subtree at `from` at version 40500
    // (malloc; the caller frees it), or null.
    virtual char *toText(KVXMessageIterator const *from, std::string const &namespaceBase) const;

    // 1 when the first four bytes are the frame magic, else 0.
    // Requires: a non-null buffer of at least four bytes.
    static int isOfTheKind(char const *buffer);
    // The length of the first frame or NUL-terminated text in the buffer, or 0
    // when more bytes are needed. Never an error.
    static int isComplete(char const *buffer, int length);

    // Checks a received frame before anything touches it: 0 when `buffer` holds
    // exactly one complete frame (its length is `length` or less; trailing bytes
    // are not looked at) whose every node lies inside its parent, whose
    // container sizes equal the sum of their children's node sizes, whose kinds
    // are known, whose nesting stays within the depth limit, whose name table
    // entries are well formed and whose ids above 200 all have names; otherwise
    // -1, with the offset of the first fault in *faultOffset when it is given.
    // Never reads outside `length`. See docs/format.md.
    static int verify(char const *buffer, int length, int *faultOffset = nullptr);

    // How many cursors newIterator has handed out; it only rises.
    unsigned __int64 cursors() const { return cursorCount; }

protected:
    // Drops the pending id, session and uid (marking them dirty).
    void resetHeaderData();
    // Takes the pending values and their flags from `other`.
    void copyHeaderData(KVXBinary const &other);

private:
    // The private text writer used by serialize below version 40000. True on failure.
    bool toText(int version, char *&text, int &length) const;

    int policy;
    mutable std::string *session;
    mutable bool sessionDirty;
    mutable std::string *uid;
    mutable bool uidDirty;
    mutable std::string *id;
    mutable bool idDirty;
    mutable bool idLocal;
    mutable KVXBinaryInternals *internals;
    mutable unsigned __int64 cursorCount;

    friend class KVXBinaryIterator;
    friend class Internal::TextParser;
    friend class Internal::TextWriter;
    friend class Internal::HeaderValues;
};

} // namespace KVX

#endif // KVX_KVXBINARY_H
