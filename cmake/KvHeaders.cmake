# What an installation exports: one header a class, and what these include.
set(KV_PUBLIC_HEADERS
  platform/KvTypes.h platform/KvExport.h
  platform/errorhandling/KvCErrorList.h platform/errorhandling/KvCErrorManager.h
  platform/errorhandling/KvNRtosAbstraction.h
)
