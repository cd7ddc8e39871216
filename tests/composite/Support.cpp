#include "Support.h"

#include "base/MessageTables.h"

namespace {

/** The library registers its tables when it is loaded; these tests have its objects only. */
[[maybe_unused]] const bool s_registered = [] {
    KvNMessageTables::registerComposite();
    KvNMessageTables::registerStream();
    return true;
}();

}  // namespace
