#include "tools/kvboardd/Wire.h"

#include "base/Report.h"

namespace KvNBoardService {

ErrorBlock::ErrorBlock(const KvCErrorListPool& errors, std::size_t maximum)
{
    if (errors.getErrorCount() == 0)
        return;
    m_bytes = errors.serialize();
    if (m_bytes.size() <= maximum)
        return;
    KvCErrorListPool replacement;
    KV_REPORT(replacement, BoardReplyTooLarge, "ErrorBlock::ErrorBlock", m_bytes.size(), maximum);
    m_bytes = replacement.serialize();
}

}  // namespace KvNBoardService
