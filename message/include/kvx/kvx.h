// Umbrella header: every public header of KVXMessage and its family libraries.
#ifndef KVX_KVX_H
#define KVX_KVX_H

#include <kvx/KVXCommon.h>
#include <kvx/KVXCore.h>
#include <kvx/KVXDefs.h>

#include <kvx/CharArray.h>
#include <kvx/KVXDefaultMap.h>

#include <kvx/KVXMessage.h>
#include <kvx/KVXMsgFactory.h>
#include <kvx/KVXSessionID.h>

#include <kvx/BinaryPath.h>
#include <kvx/KVXBinary.h>
#include <kvx/KVXBinaryIterator.h>

#include <kvx/KVXSoapConverter.h>
#include <kvx/KVXSoapEnvelope.h>
#include <kvx/KVXSoapFault.h>

#endif // KVX_KVX_H
