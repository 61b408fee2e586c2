// The registry of protocols and the default factory through which every
// message without a named class is made. Messages made here belong to the
// caller (destroy()). The registry and the default are process-wide and not
// locked: the first getFactory() must happen before threads start.
#include <kvx/KVXMsgFactory.h>

#include <kvx/KVXBinary.h>

#include <typeinfo>

namespace KVX {

namespace {

// The protocol made the default when nobody has chosen one.
typedef KVXMessageFactory<KVXBinary> DefaultProtocolFactory;

// Null until the first getFactory(); boost's default constructor is constant,
// so the pointer is null before any other unit's static initialisation runs.
boost::intrusive_ptr<KVXMsgFactory> defaultFactory;

// The name that kindOf gives a buffer that no registered protocol claims.
char const *const UnknownKind = "KVXMessage";

} // namespace

std::map<std::string, boost::intrusive_ptr<KVXMsgFactory>> &getMsgVocabulary() {
    static std::map<std::string, boost::intrusive_ptr<KVXMsgFactory>> registry;
    return registry;
}

KVXMsgFactory::KVXMsgFactory() {}

KVXMsgFactory::~KVXMsgFactory() {}

KVXMessage *KVXMsgFactory::newMessage(char const *buffer, int length) {
    KVXMessage *message = newMessage();
    if (message == nullptr) {
        return nullptr;
    }
    if (message->init(buffer, length) == 0) {
        return message;
    }
    message->destroy();
    return nullptr;
}

KVXMessage *KVXMsgFactory::createNew() {
    return KVXMessage::getFactory()->newMessage();
}

KVXMessage *KVXMsgFactory::createNew(char const *buffer, int length) {
    return KVXMessage::getFactory()->newMessage(buffer, length);
}

int KVXMsgFactory::setDefaultProtocol(std::string const &name) {
    auto &registry = getMsgVocabulary();
    auto const entry = registry.find(name);
    // A caller walking the exported map may have made an empty entry.
    if (entry == registry.end() || !entry->second) {
        return -1;
    }
    KVXMessage::setFactory(entry->second);
    return 0;
}

int KVXMsgFactory::setDefaultProtocol(std::type_info const &type) {
    for (auto const &entry : getMsgVocabulary()) {
        if (entry.second && entry.second->messageClass() == type) {
            return setDefaultProtocol(entry.second->messageType());
        }
    }
    return -1;
}

std::string KVXMsgFactory::kindOf(char const *buffer) {
    // Ascending name order: when two protocols claim a buffer, the name that
    // sorts first wins.
    for (auto const &entry : getMsgVocabulary()) {
        if (entry.second && entry.second->isOfTheKind(buffer)) {
            return entry.first;
        }
    }
    return UnknownKind;
}

boost::intrusive_ptr<KVXMsgFactory> KVXMessage::getFactory() {
    if (!defaultFactory) {
        // The constructor registers the factory under its protocol name.
        defaultFactory = new DefaultProtocolFactory();
    }
    return defaultFactory;
}

void KVXMessage::setFactory(boost::intrusive_ptr<KVXMsgFactory> factory) {
    // The argument leaves with the old default and releases it at return.
    defaultFactory.swap(factory);
}

bool KVXMessage::initialize() {
    return KVXMsgFactory::setDefaultProtocol(typeid(KVXBinary)) == 0;
}

int KVXMessage::isComplete(char const *buffer, int length) {
    return getFactory()->isComplete(buffer, length);
}

} // namespace KVX
