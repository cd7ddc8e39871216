#include "Operation.h"
#include "PrintedText.h"
#include "Trees.h"
#include "composite/KvCArrayParam.h"
#include "composite/KvCParam.h"
#include "composite/KvCParamList.h"

/* Parameters, their lists, and nodes. */

namespace {

const double doubles[] = {1.5, 2.5, 3.5, 4.5};

template <class T>
struct Array
{
    T* slot = nullptr;
    KvCArrayParam<T> array;
    KvCArrayParam<T> other;
    const T data[6] = {1, 2, 3, 4, 5, 6};
    Array() { other.setData(4, data); }
};

template <class T>
void addArrayRow(Table& table)
{
    table.add<Array<T>>(
        "KvCArrayParam::KvCArrayParam KvCArrayParam::setData KvCArrayParam::operator= KvCArrayParam::equals "
        "KvCArrayParam::getData KvCArrayParam::getCount KvCArrayParam::operator== KvCArrayParam::getPublishSlot "
        "KvCArrayParam::setPublishSlot",
        [](Array<T>& state, KvCErrorListPool& errors) {
            const KvCArrayParam<T> made(5, state.data, &state.slot);
            const KvCArrayParam<T> copy(made);
            const bool copied = isQuiet(errors);
            if (copied && !(copy == made))
                return false;
            state.array.setData(6, state.data);
            state.other = copy;
            return isQuiet(errors);
        },
        [](Array<T>& state) {
            return std::to_string(state.array.equals(6, state.data)) + std::to_string(state.other.getCount());
        });
}

struct Parameter
{
    KvCErrorListPool setUp;
    KvCParam text{setUp, 1, "a description that is long enough", KvNElement::Traits<KvCString>::code};
    KvCParam other{setUp, 2, "d", KvNElement::Traits<KvCString>::code, KvCString(longText), nullptr};
    KvCParam* made = nullptr;
    KvCString shown;
    ~Parameter() { delete made; }
};

struct Buffered
{
    KvCErrorListPool setUp;
    KvCParam parameter{setUp, 1, "d", KvNElement::Traits<KvInt32>::code | KvNElement::DoubleBufferedFlag};
};

std::string valueOf(const KvCParam& parameter)
{
    KvCErrorListPool errors;
    return parameter.getValueAsString(errors).c_str();
}

void addParamRows(Table& table)
{
    table.add<Parameter>(
        "KvCParam::KvCParam",
        [](Parameter& state, KvCErrorListPool& errors) {
            delete state.made;
            state.made = new (errors) KvCParam(errors, 3, "another description that is long enough",
                                               KvNElement::Traits<KvCString>::code, longText, nullptr);
            if (state.made == nullptr)
                errors.setError(0x401, 1, "test", nullptr);
            return isQuiet(errors) && state.made->getStateBit(KvCParam::ConstructionFailedBit) == 0;
        },
        [](Parameter& state) { return valueOf(*state.made) + state.made->getDescr(); }, Says::ByResult);
    table.add<Parameter>(
        "KvCParam::operator=",
        [](Parameter& state, KvCErrorListPool& errors) {
            delete state.made;
            state.made = new KvCParam(state.other);
            if (state.made == nullptr)
                errors.setError(0x401, 1, "test", nullptr);
            state.text = state.other;
            return isQuiet(errors);
        },
        [](Parameter& state) { return valueOf(state.text) + valueOf(*state.made); });
    table.add<Parameter>(
        "KvCParam::setValue KvCParam::getValuePointer",
        [](Parameter& state, KvCErrorListPool& errors) {
            state.text.setValue(errors, longText);
            state.other.setValue(errors, longText);
            return isQuiet(errors);
        },
        [](Parameter& state) { return valueOf(state.text) + valueOf(state.other); });
    table.add<Parameter>(
        "KvCParam::getValueAsString",
        [](Parameter& state, KvCErrorListPool& errors) {
            state.shown = state.other.getValueAsString(errors);
            return isQuiet(errors);
        },
        [](Parameter& state) { return std::string(state.shown.c_str()); });
    table.add<Buffered>(
        "KvCParam::sync",
        [](Buffered& state, KvCErrorListPool& errors) {
            state.parameter.setValue<KvInt32>(errors, 5);
            state.parameter.sync(KvNElement::DoubleBufferedFlag);
            return isQuiet(errors);
        },
        [](Buffered& state) { return valueOf(state.parameter); });
}

/** Its parameters are held once more, so that they outlive what is done to the list. */
struct List
{
    KvCErrorListPool setUp;
    KvCComposite node{setUp, 1, 1, "node"};
    KvCParamList list{&node};
    KvCParam* first = held(1);
    KvCParam* second = held(2);

    ~List()
    {
        list.clear();
        delete first;
        delete second;
    }
    KvCParam* held(KvUInt32 id)
    {
        auto* const parameter = new KvCParam(setUp, id, "parameter", KvNElement::Traits<KvUInt32>::code);
        parameter->notifyListAttachment();
        return parameter;
    }
};

std::string idsOf(KvCParamList& list)
{
    std::string ids;
    for (auto* node = list.getFront(); node != nullptr; node = node->getNext())
        ids += std::to_string(node->getContent()->getId()) + " ";
    return ids;
}

struct PrintedTree : Tree
{
    PrintedText printed;
};

void addListRows(Table& table)
{
    table.add<List>(
        "KvPList::pushBack KvPList::pushFront KvPList::clear KvPList::isEmpty KvPList::getCount "
        "KvPList::notifyElementAttachment KvPList::notifyElementDetachment KvCParamList::KvCParamList "
        "KvCParamList::notifyElementAttachment KvCParamList::notifyElementDetachment",
        [](List& state, KvCErrorListPool& errors) {
            state.list.clear();
            state.list.pushBack(errors, state.first);
            state.list.pushFront(errors, state.second);
            state.list.pushBack(state.first);
            state.list.pushFront(state.second);
            return isQuiet(errors) && state.list.getCount() == 4 && !state.list.isEmpty();
        },
        [](List& state) { return idsOf(state.list); }, Says::ByResult);
    table.add<List>(
        "KvPList::find KvPList::findContent KvPList::isEqual KvPList::removeListNode KvPList::getFront "
        "KvPList::getBack KvPListNode::getContent KvPListNode::getNext KvPListNode::getPrev "
        "KvCParamList::removeElement",
        [](List& state, KvCErrorListPool&) {
            state.list.clear();
            KvCParam* content = state.first;
            state.list.pushBack(content);
            KvPListNode<KvCParam*>* const node = state.list.find(content);
            if (node == nullptr || state.list.findContent(content) == nullptr || node != state.list.getBack() ||
                node->getNext() != nullptr || node->getPrev() != nullptr || !state.list.isEqual(content, content))
                return false;
            state.list.removeListNode(node);
            state.list.removeElement(state.second);
            return true;
        },
        [](List& state) { return idsOf(state.list); });
    table.add<PrintedTree>(
        "KvCParamList::getElementbyId KvCParamList::getElementbyDescr KvCParamList::getElementbyIndex "
        "KvCParamList::syncParameters KvCParamList::showParameters",
        [](PrintedTree& tree, KvCErrorListPool& errors) {
            tree.printed.clear();
            KvCParamList* const list = tree.leaf->getParameterList();
            if (list->getElementbyId(errors, 2) != list->getElementbyIndex(1) ||
                list->getElementbyDescr("number") != list->getElementbyId(2))
                return false;
            list->syncParameters(errors, KvNElement::DoubleBufferedFlag);
            list->showParameters(2);
            return isQuiet(errors);
        },
        [](PrintedTree& tree) { return tree.printed.text(); });
}

struct Nodes : Tree
{
    KvCComposite* made = nullptr;
    KvCComposite* another = nullptr;
    KvCString path;
    KvUInt32 outside = 0;
    const KvCString text{longText};
    Nodes() { renew(); }
    ~Nodes()
    {
        delete made;
        delete another;
    }
    void renew() { another = new KvCComposite(setUp, 7, 7, "another node that stands alone"); }
};

void addNodeRows(Table& table)
{
    table.add<Nodes>(
        "KvCComposite::KvCComposite KvCComposite::getParameterList",
        [](Nodes& nodes, KvCErrorListPool& errors) {
            delete nodes.made;
            nodes.made = new (errors) KvCComposite(errors, 5, 6, "a description that is long enough");
            if (nodes.made == nullptr)
                errors.setError(0x401, 1, "test", nullptr);
            return isQuiet(errors) && nodes.made->getParameterList() != nullptr;
        },
        [](Nodes& nodes) { return std::string(nodes.made->getDescription()); });
    table.add<Nodes>(
        "KvCComposite::attach KvCComposite::detachChild KvCComposite::replaceChild KvCComposite::setSibling "
        "KvCComposite::getChild",
        [](Nodes& nodes, KvCErrorListPool& errors) {
            if (nodes.root.attach(nodes.another) != 0)
                return false;
            nodes.another->setSibling(nullptr);
            nodes.root.detachChild(nodes.another);
            nodes.child->replaceChild(errors, nodes.another, nodes.leaf);
            nodes.child->replaceChild(errors, nodes.leaf, nodes.another);
            return isQuiet(errors) && nodes.root.getChild(1) == nodes.child;
        },
        [](Nodes& nodes) { return std::to_string(nodes.root.getChildCount()); });
    table.add<Nodes>(
        "KvCComposite::setFriend KvCComposite::getFriend",
        [](Nodes& nodes, KvCErrorListPool& errors) {
            nodes.leaf->setFriend(&nodes.root);
            return isQuiet(errors);
        },
        [](Nodes& nodes) { return std::string(nodes.leaf->getFriend() == &nodes.root ? "linked" : "not linked"); });
    table.add<Nodes>(
        "KvCComposite::setRtDataPointer KvCComposite::getRtDataPointer",
        [](Nodes& nodes, KvCErrorListPool& errors) {
            nodes.leaf->setRtDataPointer(&nodes);
            return isQuiet(errors);
        },
        [](Nodes& nodes) { return std::string(nodes.leaf->getRtDataPointer() == &nodes ? "linked" : "not linked"); });
    table.add<Nodes>(
        "KvCComposite::searchComposite KvCComposite::searchCompositeNested KvCComposite::setStateBitNested "
        "KvCComposite::clearStateBitNested",
        [](Nodes& nodes, KvCErrorListPool& errors) {
            nodes.root.setStateBitNested(8, 2);
            nodes.leaf->clearStateBitNested(8, 1);
            return nodes.root.searchComposite(errors, 2, 1) == nodes.root.searchComposite(2, 1) &&
                   nodes.root.searchCompositeNested(errors, 3, 4) == nodes.root.searchCompositeNested(3, 4) &&
                   nodes.leaf->getStateBit(8) == 0;
        },
        [](Nodes&) { return std::string(); });
    table.add<Nodes>(
        "KvCComposite::getElementPath",
        [](Nodes& nodes, KvCErrorListPool& errors) {
            nodes.path = nodes.leaf->getElementPath();
            return isQuiet(errors);
        },
        [](Nodes& nodes) { return std::string(nodes.path.c_str()); });
    table.add<Nodes>(
        "KvCComposite::init KvCComposite::apply KvCComposite::reset KvCComposite::update KvCComposite::traverse "
        "KvCComposite::traverseHook KvCComposite::PreInit KvCComposite::PostInit KvCComposite::PreApply "
        "KvCComposite::PostApply KvCComposite::PreReset KvCComposite::PostReset KvCComposite::markForSerialization "
        "KvCComposite::virtualDummyFunction1 KvCComposite::virtualDummyFunction2 KvCComposite::virtualDummyFunction3",
        [](Nodes& nodes, KvCErrorListPool& errors) {
            nodes.root.init(errors);
            nodes.root.apply(errors);
            nodes.root.update(errors);
            nodes.root.traverse(errors, 1);
            nodes.root.reset(errors);
            return isQuiet(errors);
        },
        [](Nodes& nodes) { return std::to_string(nodes.leaf->getState()); });
}

struct Values : Nodes
{
    double* publishedDoubles = nullptr;
    KvUInt32 seen = 0;
};

std::string made(Values& values)
{
    return Tree::valuesOf(values.root) + "/" + Tree::valuesOf(*values.child);
}

void addValueRows(Table& table)
{
    table.add<Values>(
        "KvCComposite::createParameter",
        [](Values& values, KvCErrorListPool& errors) {
            KvUInt32 id = 100;
            KvCComposite& node = *values.child;
            const auto create = [&](auto make) {
                ++id;
                return node.getParameterById(id) != nullptr || make() != nullptr;
            };
            bool all = create([&] { return node.createParameter(errors, id, "text", 0, longText); });
            all &= create([&] { return node.createParameter(errors, id, "string", 0, values.text); });
            all &= create([&] { return node.createParameter(errors, id, "version", 0, KvCVersion(1, 2, 3, 0, 0, 0)); });
            all &= create([&] { return node.createParameter<KvInt64>(errors, id, "number", 0, -1); });
            all &= create(
                [&] { return node.createParameter(errors, id, "array", 0, 4, doubles, &values.publishedDoubles); });
            all &= create([&] { return node.createParameter(errors, id, "external", 0, 5, &values.outside); });
            all &= create([&] {
                return node.createParameter<KvInt32>(errors, id, "buffered", KvNElement::DoubleBufferedFlag, 5);
            });
            return all && isQuiet(errors);
        },
        [](Values& values) {
            std::string all;
            KvCErrorListPool errors;
            for (KvUInt32 id = 101; id <= 107; ++id)
                all += values.child->getParameterById(id)->getValueAsString(errors).c_str() + std::string("|");
            return all;
        });
    table.add<Values>(
        "KvCComposite::addParameter KvCComposite::removeParameter",
        [](Values& values, KvCErrorListPool& errors) {
            auto* const parameter =
                new (errors) KvCParam(errors, 50, "description", KvNElement::Traits<KvUInt32>::code);
            if (parameter == nullptr) {
                errors.setError(0x401, 1, "test", nullptr);
                return false;
            }
            values.root.addParameter(errors, parameter);
            if (parameter->getParent() != &values.root) {
                delete parameter;
                return false;
            }
            values.root.removeParameter(errors, 50);
            return isQuiet(errors);
        },
        made);
    table.add<Values>(
        "KvCComposite::setParameter",
        [](Values& values, KvCErrorListPool& errors) {
            const KvUInt32 longer[] = {9, 8, 7, 6, 5, 4, 3, 2, 1, 0};
            long result = values.root.setParameter(errors, 1, "another text that is too long to stand inside");
            result |= values.leaf->setParameter(errors, 1, values.text);
            result |= values.root.setParameter<KvUInt32>(errors, 2, 5);
            result |= values.root.setParameter(errors, 3, 10, longer);
            result |= values.root.setParameter<KvInt32>(errors, 4, 6);
            values.root.syncParameters(errors, KvNElement::DoubleBufferedFlag);
            return result == 0 && isQuiet(errors);
        },
        made);
    table.add<Values>(
        "KvCComposite::getParam_UInt32 KvCComposite::syncParameters KvCComposite::isModified "
        "KvCComposite::clearModified KvCComposite::getParameterByDescr KvCComposite::getParameterByIndex",
        [](Values& values, KvCErrorListPool& errors) {
            KvCString text;
            long result = values.root.getParameter(errors, 1, text);
            KvUInt32* data = nullptr;
            result |= values.root.getParameter(errors, 3, &values.seen, &data);
            values.root.clearModified(0);
            values.root.syncParameters(errors, KvNElement::DoubleBufferedFlag);
            values.seen = values.root.getParam_UInt32(errors, 2) + text.length();
            return result == 0 && isQuiet(errors) && !values.root.isModified(1) &&
                   values.root.getParameterByDescr("number") == values.root.getParameterByIndex(1);
        },
        [](Values& values) { return std::to_string(values.seen); });
    table.add<PrintedTree>(
        "KvCComposite::showParameters",
        [](PrintedTree& tree, KvCErrorListPool& errors) {
            tree.printed.clear();
            tree.root.showParameters(2);
            return isQuiet(errors);
        },
        [](PrintedTree& tree) { return tree.printed.text(); });
}

}  // namespace

void addCompositeRows(Table& table)
{
    addArrayRow<KvUInt32>(table);
    addArrayRow<double>(table);
    addParamRows(table);
    addListRows(table);
    addNodeRows(table);
    addValueRows(table);
}
