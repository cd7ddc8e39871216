#include "tools/kvinv/UpdateFollower.h"

#include <algorithm>

#include "manager/KvCInventoryManager.h"

UpdateFollower::Verdict UpdateFollower::answered(KvUInt32 state, KvUInt32 percent, Time now)
{
    if (state == KvNInventoryManager::Idle)
        return Verdict::Lost;
    if (state == KvNInventoryManager::Finished)
        return Verdict::Finished;
    if (state != KvNInventoryManager::Running)
        return failed(now);
    m_lastAnswer = now;
    m_isAnswering = true;
    m_percent = std::max(m_percent, std::min<KvUInt32>(percent, 100));
    return Verdict::Running;
}

UpdateFollower::Verdict UpdateFollower::failed(Time now)
{
    m_isAnswering = false;
    return now - m_lastAnswer >= patience ? Verdict::GivenUp : Verdict::NoAnswer;
}
