// Protocol factories and the registry of protocols by name. The registry and
// the default factory are process-wide and unguarded: the embedding program
// makes its first getFactory() call before it starts threads.
#ifndef KVX_KVXMSGFACTORY_H
#define KVX_KVXMSGFACTORY_H

#include <kvx/KVXMessage.h>

#include <map>
#include <new>
#include <string>
#include <typeinfo>

#include <boost/intrusive_ptr.hpp>

namespace KVX {

// A protocol's factory. Destroying one does not take it out of the registry.
class KVX_EXPORT KVXMsgFactory : public KVXRefCounter {
public:
    KVXMsgFactory();
    ~KVXMsgFactory() override;

    // A new message, nothing loaded; owned by the caller (destroy()).
    virtual KVXMessage *newMessage() = 0;
    // newMessage(), then its init(buffer, length); null when either fails.
    virtual KVXMessage *newMessage(char const *buffer, int length);
    // The protocol's framing answer: the frame's length, or 0 for "more needed".
    virtual int isComplete(char const *buffer, int length) = 0;
    // True when the buffer holds this protocol's frame.
    virtual bool isOfTheKind(char const *buffer) = 0;
    // The protocol's name, its key in the registry.
    virtual std::string messageType() = 0;
    // The run-time type of the protocol's message class.
    virtual std::type_info const &messageClass() = 0;

    // The default factory's newMessage forms. Neither detects the protocol.
    static KVXMessage *createNew();
    static KVXMessage *createNew(char const *buffer, int length);
    // Makes the registered protocol of that name (or message class) the default.
    // -1 when it is not registered; the default then stays.
    static int setDefaultProtocol(std::string const &name);
    static int setDefaultProtocol(std::type_info const &type);
    // The name of the first registered protocol (in name order) whose
    // isOfTheKind accepts the buffer, else "KVXMessage".
    // Requires: at least four readable bytes.
    static std::string kindOf(char const *buffer);
};

// The registry: protocol name to factory, built at the first call.
KVX_EXPORT std::map<std::string, boost::intrusive_ptr<KVXMsgFactory>> &getMsgVocabulary();

// The factory of a concrete message class `T`. Its constructor registers it
// under T's protocol name (the last one constructed for a name wins) and takes
// one further reference, so a registered factory lives to the end of the process.
template <class T> class KVXMessageFactory : public KVXMsgFactory {
public:
    KVXMessageFactory() {
        std::string const name = messageType();
        getMsgVocabulary()[name] = this;
        intrusive_ptr_add_ref(this);
    }
    ~KVXMessageFactory() override {}

    KVXMessage *newMessage() override { return new (std::nothrow) T(); }
    using KVXMsgFactory::newMessage;
    int isComplete(char const *buffer, int length) override {
        return T::isComplete(buffer, length);
    }
    bool isOfTheKind(char const *buffer) override { return T::isOfTheKind(buffer) != 0; }
    std::string messageType() override { return T::MessageType; }
    std::type_info const &messageClass() override { return typeid(T); }
};

} // namespace KVX

#endif // KVX_KVXMSGFACTORY_H
