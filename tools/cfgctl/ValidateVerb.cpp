#include "Session.h"
#include "base/Descriptor.h"
#include "base/RegularFile.h"

#include <algorithm>
#include <cerrno>
#include <json/reader.h>

namespace
{

constexpr std::size_t kMostFaults = 20;

/// Whether a value may stand in an instance, by the property's "type".
struct Type {
    const char* name;
    bool (*takes)(const Json::Value& value, const Json::Value& property);
};

constexpr Type kTypes[] = {
    {"integer", [](const Json::Value& value, const Json::Value&) { return value.isInt(); }},
    {"boolean", [](const Json::Value& value, const Json::Value&) { return value.isBool(); }},
    {"string", [](const Json::Value& value, const Json::Value&) { return value.isString(); }},
    {"enum",
     [](const Json::Value& value, const Json::Value& property) {
         const Json::Value& values = property["values"];
         return values.isArray() && std::ranges::find(values, value) != values.end();
     }},
};

/// Walks a dataset document, and gathers what the store would stumble over.
class DatasetCheck
{
public:
    explicit DatasetCheck(const std::string& text) : mText(text) {}

    void check()
    {
        Json::Value root;
        Json::Reader reader;
        try {
            if (!reader.parse(mText, root))
                for (const Json::Reader::StructuredError& error : reader.getStructuredErrors())
                    add(error.offset_start, error.message);
        } catch (const std::exception& exception) { // nested too deeply
            add(0, exception.what());
        }
        if (mFaults.empty())
            checkDocument(root);
    }

    const Json::Value& faults() const { return mFaults; } ///< the first of them
    std::size_t count() const { return mCount; }

private:
    void add(std::ptrdiff_t offset, const std::string& problem)
    {
        ++mCount;
        if (mFaults.size() >= kMostFaults)
            return;
        const std::string before = mText.substr(0, static_cast<std::size_t>(offset));
        Json::Value& fault = mFaults.append(Json::objectValue);
        fault["line"] = static_cast<int>(std::count(before.begin(), before.end(), '\n') + 1);
        fault["column"] = static_cast<int>(before.size() - (before.rfind('\n') + 1) + 1);
        fault["problem"] = problem;
    }

    /// Adds the problem unless it is so.
    bool require(bool isSo, const Json::Value& where, const std::string& problem)
    {
        if (!isSo)
            add(where.getOffsetStart(), problem);
        return isSo;
    }

    void checkDocument(const Json::Value& root)
    {
        if (!require(root.isObject(), root, "the document is no object"))
            return;
        require(root["dataset"].isString(), root, "\"dataset\", its name, is missing");
        const Json::Value& components = root["components"];
        if (!require(components.isObject(), root, "\"components\" is missing, or no object"))
            return;
        for (auto component = components.begin(); component != components.end(); ++component)
            checkComponent(*component, "component " + inQuotes(component.name()) + ": ");
    }

    void checkComponent(const Json::Value& component, const std::string& where)
    {
        if (!require(component.isObject(), component, where + "no object"))
            return;
        const Json::Value& properties = component["properties"];
        if (!require(properties.isObject(), component, where + "\"properties\" is missing"))
            return;
        for (auto property = properties.begin(); property != properties.end(); ++property)
            checkProperty(*property, where + "property " + inQuotes(property.name()) + ": ");
        if (const Json::Value& single = component["instance"]; !single.isNull())
            checkInstance(single, properties, where + "instance: ");
        const Json::Value& instances = component["instances"];
        if (!require(instances.isNull() || instances.isObject() || instances.isArray(), instances,
                     where + "\"instances\" is neither object nor array"))
            return;
        for (auto instance = instances.begin(); instance != instances.end(); ++instance)
            checkInstance(*instance, properties,
                          where + "instance " + inQuotes(instance.key().asString()) + ": ");
    }

    void checkProperty(const Json::Value& property, const std::string& where)
    {
        if (!require(property.isObject(), property, where + "no object"))
            return;
        const Type* const type = typeOf(property);
        if (type == nullptr)
            add(property.getOffsetStart(),
                where + "\"type\" is none of integer, boolean, string, enum");
        else if (std::string_view(type->name) == "enum")
            require(property["values"].isArray(), property, where + "\"values\" is missing");
    }

    void checkInstance(const Json::Value& instance, const Json::Value& properties,
                       const std::string& where)
    {
        if (!require(instance.isObject(), instance, where + "no object"))
            return;
        for (auto value = instance.begin(); value != instance.end(); ++value) {
            const std::string name = where + inQuotes(value.name());
            const Json::Value& property = properties[value.name()];
            if (!require(property.isObject(), *value, name + " is no property of the component"))
                continue;
            if (const Type* const type = typeOf(property); type != nullptr)
                require(type->takes(*value, property), *value,
                        name + " does not fit the type " + type->name);
        }
    }

    static const Type* typeOf(const Json::Value& property)
    {
        const Json::Value& name = property["type"];
        const auto found = std::ranges::find_if(kTypes, [&](const Type& type) {
            return name.isString() && name.asString() == type.name;
        });
        return found == std::end(kTypes) ? nullptr : found;
    }

    const std::string& mText;
    Json::Value mFaults{Json::arrayValue};
    std::size_t mCount = 0;
};

} // namespace

void runValidate(Session& session)
{
    const std::string path = session.call.argument(0);
    const Descriptor file(openRegularFile(path));
    std::string text;
    const int error = file.isOpen() ? readToEnd(file.get(), text) : errno;
    if (error != 0)
        throw fileFailure("cannot read", path, error);
    DatasetCheck dataset(text);
    dataset.check();
    session.out.document()["file"] = path;
    if (dataset.faults().empty()) {
        session.out.document()["faults"] = Json::arrayValue;
        session.out.text(session.call.asked() + ": OK\n");
        return;
    }
    constexpr Column kColumns[] = {{"LINE", "line"}, {"COLUMN", "column"}, {"PROBLEM", "problem"}};
    session.out.table("faults", kColumns, dataset.faults());
    session.out.document()["faultCount"] = static_cast<Json::UInt64>(dataset.count());
    const std::string shown = dataset.count() == dataset.faults().size()
                                  ? ""
                                  : "; these are the first " +
                                        std::to_string(dataset.faults().size()) + " of " +
                                        std::to_string(dataset.count()) + " faults";
    throw Failure(EXIT_NAME_OR_VALUE, "the daemon would not take it, or not all of it" + shown,
                  "vi +" + dataset.faults()[0]["line"].asString() + ' ' + shellQuoted(path));
}
