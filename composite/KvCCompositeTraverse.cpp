#include "composite/KvCCompositeTraverse.h"

#include "composite/CompositeWalk.h"
#include "composite/KvCComposite.h"
#include "composite/StreamFormat.h"

using namespace KvNStream;

KvCCompositeTraverse::~KvCCompositeTraverse() = default;
void KvCCompositeTraverse::CompositeStart(KvCErrorListPool&, KvCComposite*) {}
void KvCCompositeTraverse::CompositeEnd(KvCErrorListPool&, KvCComposite*) {}
void KvCCompositeTraverse::CompositeParameter(KvCErrorListPool&, const KvCParam*) {}

void KvCCompositeTraverse::traverse(KvCErrorListPool& errors, KvCComposite* root)
{
    const auto isVisible = [this](const KvCComposite* node) {
        return (m_mode & VisibleOnlyMode) == 0 || node->getStateBit(KvCComposite::VisibleBits) != 0;
    };
    KvNCompositeWalk::walk(
        root,
        [&](KvCComposite* node) {
            if (isVisible(node)) {
                CompositeStart(errors, node);
                handleParameter(errors, node);
            }
            return true;
        },
        [&](KvCComposite* node) {
            if (isVisible(node))
                CompositeEnd(errors, node);
            return true;
        });
}

namespace {

bool passes(KvUInt32 mode, const KvCParam* parameter)
{
    const KvUInt32 filter = (mode & Filter2Mode) != 0   ? KvNElement::FilterFlag2
                            : (mode & Filter1Mode) != 0 ? KvNElement::FilterFlag1
                                                        : 0;
    if ((parameter->getType() & filter) != 0)
        return false;
    const KvUInt32 idClass = parameter->getId() & 0xF00;
    return (mode & IdClassMode) == 0 || idClass == 0x200 || idClass == 0x600;
}

}  // namespace

void KvCCompositeTraverse::handleParameter(KvCErrorListPool& errors, KvCComposite* composite)
{
    const KvCParamList* const list = static_cast<const KvCComposite*>(composite)->getParameterList();
    const KvPListNode<KvCParam*>* node = list == nullptr ? nullptr : list->getFront();
    while (node != nullptr) {
        const KvCParam* const parameter = node->getContent();
        node = node->getNext();
        if (parameter != nullptr && passes(m_mode, parameter))
            CompositeParameter(errors, parameter);
    }
}
