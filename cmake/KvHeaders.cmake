# What an installation exports: the header of each exported class, and what these include.
set(KV_PUBLIC_HEADERS
  platform/KvTypes.h platform/KvExport.h
  platform/errorhandling/KvCErrorList.h platform/errorhandling/KvCErrorManager.h
  platform/errorhandling/KvNRtosAbstraction.h
  platform/oncrpc/KvCRpcClient.h platform/oncrpc/KvXdr.h
  platform/dal/KvDALBase.h platform/dal/KvDALAp.h
  base/KvCString.h base/KvCVersion.h base/KvCBuffer.h base/BigEndian.h base/Crc32.h
  composite/ElementTypes.def composite/ElementTypes.h composite/SharedText.h composite/KvCArrayParam.h
  composite/KvCParam.h composite/KvPList.h composite/KvCParamList.h composite/KvCComposite.h
  composite/KvCCompositeTraverse.h composite/KvCBinSerializer.h composite/KvCBinDeserializer.h
  composite/KvCCompositeFactory.h composite/KvCXmlSerializer.h
  inventory/KvCInventoryAddress.h inventory/KvCInventoryTagMap.h inventory/KvCInventoryParameter.h
  inventory/KvCInventoryItem.h inventory/KvCInventoryItemFactory.h inventory/KvCInventoryData.h inventory/SectionFormat.h
  inventory/ids/KvNInventoryIDs.h inventory/ids/InventoryIDs.def inventory/ids/SystemMacros.h
  manager/KvCInventoryManager.h manager/KvCInventoryRootHandle.h manager/FirmwareTypes.def
  manager/rpc/KVINVENTORYMANAGERRPCIF1Client.h manager/rpc/InventoryRecords.h)
