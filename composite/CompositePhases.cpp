#include <cstdio>

#include "base/Report.h"
#include "composite/CompositeWalk.h"
#include "composite/KvCComposite.h"

namespace {

using Hook = void (KvCComposite::*)(KvCErrorListPool&);

/** One end of a phase: its hook, the name that notices show, and how a failure of the hook is reported. */
struct Step
{
    Hook hook;
    const char* name;
    void (*reportAbort)(KvCErrorListPool& errors, const char* path, KvUInt32 classId);
};

/** A phase: a node has it behind it when (state & skipMask) is the done bit. */
struct Phase
{
    Step pre;
    Step post;
    KvUInt32 doneBit;
    KvUInt32 skipMask;
    const char* doneWord;
};

constexpr Phase initPhase = {{&KvCComposite::PreInit, "PreInit",
                              [](KvCErrorListPool& errors, const char* path, KvUInt32 classId) {
                                  KV_REPORT(errors, PreInitAborted, "KvCComposite::init", path, classId);
                              }},
                             {&KvCComposite::PostInit, "PostInit",
                              [](KvCErrorListPool& errors, const char* path, KvUInt32 classId) {
                                  KV_REPORT(errors, PostInitAborted, "KvCComposite::init", path, classId);
                              }},
                             KvCComposite::InitializedBit,
                             KvCComposite::InitializedBit,
                             "initialized"};

constexpr Phase applyPhase = {{&KvCComposite::PreApply, "PreApply",
                               [](KvCErrorListPool& errors, const char* path, KvUInt32 classId) {
                                   KV_REPORT(errors, PreApplyAborted, "KvCComposite::apply", path, classId);
                               }},
                              {&KvCComposite::PostApply, "PostApply",
                               [](KvCErrorListPool& errors, const char* path, KvUInt32 classId) {
                                   KV_REPORT(errors, PostApplyAborted, "KvCComposite::apply", path, classId);
                               }},
                              KvCComposite::AppliedBit,
                              KvCComposite::AppliedBit | KvCComposite::ReapplyBit,
                              "applied"};

/** Runs one end of the phase on a node; false when its hook reported an error. */
bool runStep(KvCErrorListPool& errors, KvCComposite* node, const Phase& phase, const Step& step)
{
    if (node->getStateBit(phase.skipMask) == phase.doneBit) {
        std::printf(" Composite 0x%08x 0x%08x already %s, skipping %s \n",
                    static_cast<unsigned int>(node->getClassId()), static_cast<unsigned int>(node->getUnitId()),
                    phase.doneWord, step.name);
        return true;
    }
    const KvNReport::Watch watch(errors);
    (node->*step.hook)(errors);
    if (watch.grew())
        step.reportAbort(errors, node->getElementPath().c_str(), node->getClassId());
    return !watch.grew();
}

void runPhase(KvCErrorListPool& errors, KvCComposite* root, const Phase& phase)
{
    KvNCompositeWalk::walk(
        root, [&](KvCComposite* node) { return runStep(errors, node, phase, phase.pre); },
        [&](KvCComposite* node) {
            if (!runStep(errors, node, phase, phase.post))
                return false;
            node->setStateBit(phase.doneBit);
            return true;
        });
}

}  // namespace

void KvCComposite::init(KvCErrorListPool& errors)
{
    runPhase(errors, this, initPhase);
}

void KvCComposite::apply(KvCErrorListPool& errors)
{
    runPhase(errors, this, applyPhase);
}

void KvCComposite::reset(KvCErrorListPool& errors)
{
    KvNCompositeWalk::walk(
        this,
        [&](KvCComposite* node) {
            node->PreReset(errors);
            return true;
        },
        [&](KvCComposite* node) {
            node->PostReset(errors);
            node->m_state = 0;
            return true;
        });
}

void KvCComposite::traverse(KvCErrorListPool& errors, KvUInt32 mode)
{
    constexpr KvUInt32 leaving = 0x80000000;
    KvNCompositeWalk::walk(
        this,
        [&](KvCComposite* node) {
            node->traverseHook(errors, mode);
            return true;
        },
        [&](KvCComposite* node) {
            node->traverseHook(errors, mode | leaving);
            return true;
        });
}
