// KVXBinaryIterator: the cursor over a KVXBinary. It holds no pointer into a
// node, only a path of (id, offset) records, and re-derives everything else
// from the frame on each call; the document's change counter tells it when its
// offsets may be stale. Navigation is const and moves the cursor all the same.
// A cursor is for one thread at a time and must not outlive its message.
#ifndef KVX_KVXBINARYITERATOR_H
#define KVX_KVXBINARYITERATOR_H

#include <kvx/BinaryPath.h>
#include <kvx/KVXBinary.h>
#include <kvx/KVXMessage.h>

#include <string>

namespace KVX {

class KVXBinaryInternals;
class KVXProtocolIDMap;

class KVX_EXPORT KVXBinaryIterator : public KVXMessageIterator {
public:
    // Behaviour flags copied by each new cursor: bit 0 (1) expands deferred XML
    // fragments on the way down; bit 1 (2) makes a fragment that does not parse
    // a failure of that expansion.
    static int Policy;

    // A cursor at the root, or with an empty path if the document has no root.
    explicit KVXBinaryIterator(KVXBinary *message);
    // Copies take message, policy and path from `other`, but buffer and stamp
    // fresh from the document.
    explicit KVXBinaryIterator(KVXBinaryIterator const *other);
    KVXBinaryIterator(KVXBinaryIterator const &other);
    // Takes everything from `other`, buffer and stamp included.
    KVXBinaryIterator &operator=(KVXBinaryIterator const &other);
    ~KVXBinaryIterator() override;

    using KVXMessageIterator::getValue;
    using KVXMessageIterator::putChild;
    using KVXMessageIterator::seekPresence;

    KVXMessageIterator *newIterator(bool deep = false) const override;
    int seekRoot() const override;
    int seekUp() const override;
    int seek(int id) const override;
    int seek(std::string const &path) const override;
    int seekPresence(int id) const override;
    int seekPresence(std::string const &path) const override;
    int setNamespace(int id) override;
    int setNamespace(std::string const &name) override;
    void saveNamespace(int id) override;
    void saveNamespace(std::string const &name) override;
    int setComplexType(int namespaceId, int typeId) override;
    int setComplexType(std::string const &namespaceName, std::string const &typeName) override;
    int newChild(int id) override;
    int newChild(std::string const &name) override;
    int firstChild(int id) const override;
    int firstChild() const override;
    int firstChild(std::string const &name) const override;
    int nextSibling(int id) const override;
    int nextSibling(std::string const &name) const override;
    int nextSibling() const override;
    std::string const curName() const override;
    std::string const curType() const override;
    int curNamespaceID() const override;
    int serializeFromChild(char **buffer, int *size) const override;
    int deserializeToChild(char const *buffer, int size) override;
    int copyToChild(KVXMessageIterator const *source) override;
    char *toTextFromChild() const override;
    int fromTextToChild(char const *text) override;
    int deleteFromChild() override;
    int getValueBase64(std::string &value, int id = 0) const override;
    int getValueBase64(std::string &value, std::string const &path) const override;
    int getValue(int &value, int id = 0) const override;
    int getValue(std::string &value, int id = 0) const override;
    int getValue(int &value, std::string const &path) const override;
    int getValue(std::string &value, std::string const &path) const override;
    int getValueLongLong(__int64 &value, int id = 0) const override;
    int getValueLongLong(__int64 &value, std::string const &path) const override;
    int getValueDouble(double &value, int id = 0) const override;
    int getValueDouble(double &value, std::string const &path) const override;
    int getValueTime(__int64 &value, int id = 0) const override;
    int getValueTime(__int64 &value, std::string const &path) const override;
    int getValueTimeZone(__int64 &value, int &zone, int id = 0) const override;
    int getValueTimeZone(__int64 &value, int &zone, std::string const &path) const override;
    int putValueBase64(std::string const &value, int id = 0) override;
    int putValueBase64(char const *value, int length, int id = 0) override;
    int putValueBase64(std::string const &value, std::string const &path) override;
    int putValue(int value, int id = 0) override;
    int putValue(std::string const &value, int id = 0) override;
    int putValue(char const *value, int length, int id = 0) override;
    int putValue(int value, std::string const &path) override;
    int putValue(std::string const &value, std::string const &path) override;
    int putValueLongLong(__int64 value, int id = 0) override;
    int putValueLongLong(__int64 value, std::string const &path) override;
    int putValueDouble(double value, int id = 0) override;
    int putValueDouble(double value, std::string const &path) override;
    int putValueTime(__int64 value, int id = 0) override;
    int putValueTime(__int64 value, std::string const &path) override;
    int putValueTimeZone(__int64 value, int zone, int id = 0) override;
    int putValueTimeZone(__int64 value, int zone, std::string const &path) override;

protected:
    // Sets the stamp to a value the document does not reach, so that the next
    // validation re-checks the path.
    void invalidate() const override;

public:
    // The id of the current node, read from the path without touching the frame.
    virtual int curID() const;
    // XML fragments (KindXML) by id; no path forms.
    virtual int getValueXML(std::string &value, int id = 0) const;
    virtual int putValueXML(std::string const &value, int id = 0);
    // Attribute access. getAttr(string&) reads the text at the value whatever the
    // kind; the others forward to the value operations of the same types.
    virtual int getAttr(std::string &value, int id) const;
    virtual int getAttr(int &value, int id) const;
    virtual int getAttrTime(__int64 &value, int id) const;
    virtual int putAttr(std::string const &value, int id);
    virtual int putAttr(int value, int id);
    virtual int putAttrTime(__int64 value, int id);

    // The cursor's position, for the document's own operations.
    BinaryPath &binaryPath() const { return path; }

protected:
    // Copy on first write, then validateStamp. 0 or -1.
    int validateInternals() const;

private:
    // Refreshes the cached base and re-checks the path after the document
    // changed. 0, or -1 when the path no longer holds.
    int validateStamp() const;
    // Expands deferred XML fragments among the current node's children.
    int parseUnknown() const;
    // Sets the complex type of the current node by its full name.
    int setComplexType(std::string const &fullName);
    int getFullTypeName(int namespaceId, int typeId, std::string &out) const;
    // General form of the setters; true on failure.
    bool put(int id, unsigned short kind, void const *data, unsigned int length, bool terminate);

    KVXBinary *getBinaryMessage() const;
    KVXBinaryInternals &doc() const;
    KVXProtocolIDMap &ids() const;

    int policy;
    mutable char *buffer;
    mutable unsigned int stamp;
    mutable BinaryPath path;

    friend class KVXBinary;
};

} // namespace KVX

#endif // KVX_KVXBINARYITERATOR_H
