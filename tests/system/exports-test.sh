#!/bin/sh
# The shared library $1 exports the documented interface and nothing else: every name it defines belongs to a class,
# namespace, function or structure of the library, or is an allocation operator that takes an error list.
set -eu
foreign=$(nm -DC --defined-only "$1" | cut -d' ' -f3- | grep -vE '(^|[ *&<(])Kv|^KVINVENTORYMANAGERRPCIF1Client|for KVINV' |
    grep -vE '^operator (new|delete)(\[\])?\(.*KvCErrorListPool&\)$' || true)
[ -z "$foreign" ] || { printf 'exported, but not of the interface:\n%s\n' "$foreign"; exit 1; }
for name in KvNInventoryIDs::CPU KvNInventoryIDs::Map KvNInventoryIDs::THIS_NODE 'KvCInventoryManager::getInstance()' \
    'KvCErrorManager::getSingleton()' 'vtable for KvCInventoryItem' 'KvCXmlSerializer::' \
    'KvCInventoryManager::transferFile(' 'KvCInventoryManager::deleteRemoteFile(' 'KvCInventoryManager::updateErrors2(' \
    'KvDAL_putFileU(' 'KvDAL_deleteFile(' 'KvDAL_createFTClientHandle(' 'KvDAL_deleteFTClientHandle('; do
    nm -DC --defined-only "$1" | grep -qF "$name" || { echo "not exported: $name"; exit 1; }
done
constants=$(nm -DC --defined-only "$1" | grep -cE ' [BDR] KvNInventoryIDs::[A-Z0-9_]+$|KvNInventoryIDs::Map$')
[ "$constants" = 813 ] || { echo "$constants inventory constants are exported, not 813"; exit 1; }
echo "passed"
