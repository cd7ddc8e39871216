#include <filesystem>
#include <fstream>
#include <sstream>

#include "Operation.h"
#include "PrintedText.h"
#include "Trees.h"
#include "composite/KvCBinDeserializer.h"
#include "composite/KvCBinSerializer.h"
#include "composite/KvCCompositeFactory.h"
#include "composite/KvCXmlSerializer.h"

/* Trees as bytes and as texts, and back. */

namespace {

struct Writer : Tree
{
    KvCBuffer buffer{setUp};
    KvCBinSerializer serializer{setUp};
    Writer() { serializer.setBuffer(&buffer); }
    void rewind() { buffer.setWritePointer(setUp, buffer.getStartPointer()); }
};

struct Factory : Writer
{
    KvCCompositeFactory factory{setUp};
    KvCBuffer own{setUp};
    KvCComposite* read = nullptr;
    KvCParam* parameter = nullptr;

    Factory() { factory.serialize(setUp, &root, 0, &buffer); }
    ~Factory()
    {
        delete read;
        delete parameter;
    }
};

/** A tree that is read by hand, without a factory's help. */
struct Reader : Factory
{
    KvCBinDeserializer deserializer{setUp};
    Reader()
    {
        deserializer.setBuffer(&buffer);
        deserializer.setFactory(&factory);
    }
    /** What reading has made is given back before it is read again. */
    void drop()
    {
        deserializer.dropFreeParameter();
        delete deserializer.getRoot();
        deserializer.setRoot(nullptr);
    }
    ~Reader() { drop(); }
};

/** One parameter by itself. */
struct ParameterReader : Factory
{
    KvCBinDeserializer deserializer{setUp};
    ParameterReader()
    {
        deserializer.setBuffer(&buffer);
        deserializer.setFactory(&factory);
        factory.setBinarySerializer(&serializer);
        factory.setBinaryDeserializer(&deserializer);
    }
    ~ParameterReader()
    {
        factory.setBinarySerializer(nullptr);
        factory.setBinaryDeserializer(nullptr);
    }
};

struct MadeBuffer : Reader
{
    ~MadeBuffer()
    {
        if (deserializer.getBuffer() != &buffer)
            delete deserializer.getBuffer();
    }
};

struct Xml : Tree
{
    KvCXmlSerializer* xml = nullptr;
    ~Xml() { delete xml; }
};

struct Printed : Tree
{
    PrintedText printed;
};

std::string treeOf(const KvCComposite* node)
{
    if (node == nullptr)
        return "none";
    std::string all = std::string(node->getDescription()) + ":" + Tree::valuesOf(*node);
    for (const KvCComposite* child = node->getChild(); child != nullptr; child = child->getSibling())
        all += "(" + treeOf(child) + ")";
    return all;
}

void addWritingRows(Table& table)
{
    table.add<Writer>(
        "KvCBinSerializer::KvCBinSerializer KvCBinSerializer::serialize KvCBinSerializer::CompositeStart "
        "KvCBinSerializer::CompositeEnd KvCBinSerializer::CompositeParameter KvCBinSerializer::handleCustomParameter "
        "KvCCompositeTraverse::traverse KvCCompositeTraverse::handleParameter KvCCompositeTraverse::CompositeStart "
        "KvCCompositeTraverse::CompositeEnd KvCCompositeTraverse::CompositeParameter",
        [](Writer& writer, KvCErrorListPool& errors) {
            writer.rewind();
            KvCBinSerializer serializer(errors);
            serializer.setBuffer(&writer.buffer);
            for (int i = 0; i < 6 && isQuiet(errors); ++i)
                serializer.serialize(errors, &writer.root);
            return isQuiet(errors);
        },
        [](Writer& writer) { return bytesOf(writer.buffer); });
    table.add<Factory>(
        "KvCCompositeFactory::KvCCompositeFactory KvCCompositeFactory::serialize",
        [](Factory& state, KvCErrorListPool& errors) {
            state.own.setWritePointer(errors, state.own.getStartPointer());
            KvCCompositeFactory factory(errors);
            if (isQuiet(errors))
                factory.serialize(errors, &state.root, 0, &state.own);
            return isQuiet(errors);
        },
        [](Factory& state) { return bytesOf(state.own); });
    table.add<Xml>(
        "KvCXmlSerializer::KvCXmlSerializer KvCXmlSerializer::CompositeStart KvCXmlSerializer::CompositeEnd "
        "KvCXmlSerializer::CompositeParameter",
        [](Xml& state, KvCErrorListPool& errors) {
            delete state.xml;
            state.xml = new (errors) KvCXmlSerializer(errors, 0);
            if (state.xml == nullptr)
                errors.setError(0x401, 1, "test", nullptr);
            else
                for (int i = 0; i < 4; ++i)
                    state.xml->traverse(errors, &state.root);
            return isQuiet(errors);
        },
        [](Xml& state) { return bytesOf(*state.xml->getBuffer()); });
    table.add<Printed>(
        "KvCCompositeFactory::printAsciiComposite",
        [](Printed& tree, KvCErrorListPool& errors) {
            tree.printed.clear();
            KvCCompositeFactory::printAsciiComposite(errors, &tree.root, 1);
            return isQuiet(errors);
        },
        [](Printed& tree) { return tree.printed.text(); });
    table.add<Printed>(
        "KvCCompositeFactory::printXmlComposite",
        [](Printed& tree, KvCErrorListPool& errors) {
            KvCCompositeFactory::printXmlComposite(errors, &tree.root, 0);
            return isQuiet(errors);
        },
        [](Printed&) {
            std::ostringstream text;
            text << std::ifstream("SystemManagerDump.xml").rdbuf();
            std::filesystem::remove("SystemManagerDump.xml");
            return text.str();
        },
        Says::InItsWords);
}

void addReadingRows(Table& table)
{
    table.add<Factory>(
        "KvCCompositeFactory::deserialize KvCCompositeFactory::createComposite",
        [](Factory& state, KvCErrorListPool& errors) {
            delete state.read;
            state.read = state.factory.deserialize(errors, nullptr, &state.buffer);
            return state.read != nullptr && isQuiet(errors);
        },
        [](Factory& state) { return treeOf(state.read); });
    table.add<Reader>(
        "KvCBinDeserializer::KvCBinDeserializer KvCBinDeserializer::deserialize KvCBinDeserializer::CompositeStart "
        "KvCBinDeserializer::CompositeEnd KvCBinDeserializer::CompositeParameter KvCBinDeserializer::setRoot "
        "KvCBinDeserializer::createCustomParameter KvCBinDeserializer::handleCustomParameter "
        "KvCBinDeserializer::createPlainParameter KvCBinDeserializer::dropFreeParameter",
        [](Reader& reader, KvCErrorListPool& errors) {
            reader.drop();
            reader.deserializer.deserialize(errors);
            return isQuiet(errors);
        },
        [](Reader& reader) { return treeOf(reader.deserializer.getRoot()); });
    table.add<MadeBuffer>(
        "KvCBinDeserializer::createBuffer",
        [](MadeBuffer& reader, KvCErrorListPool& errors) {
            if (reader.deserializer.getBuffer() != &reader.buffer)
                delete reader.deserializer.getBuffer();
            reader.deserializer.createBuffer(errors);
            return isQuiet(errors);
        },
        [](MadeBuffer& reader) { return std::to_string(reader.deserializer.getBuffer()->getSize()); });
    table.add<ParameterReader>(
        "KvCCompositeFactory::serializeParameter KvCCompositeFactory::deserializeParameter "
        "KvCCompositeFactory::getParentNode",
        [](ParameterReader& reader, KvCErrorListPool& errors) {
            reader.rewind();
            reader.buffer.setReadPosition(errors, 0);
            delete reader.parameter;
            reader.parameter = nullptr;
            reader.factory.serializeParameter(errors, &reader.buffer, reader.root.getParameterById(1));
            reader.factory.deserializeParameter(errors, reader.parameter, &reader.buffer);
            reader.factory.getParentNode(errors);
            return isQuiet(errors) && reader.parameter != nullptr;
        },
        [](ParameterReader& reader) {
            KvCErrorListPool errors;
            return std::string(reader.parameter->getValueAsString(errors).c_str()) + reader.parameter->getDescr();
        });
}

}  // namespace

void addStreamRows(Table& table)
{
    addWritingRows(table);
    addReadingRows(table);
}
