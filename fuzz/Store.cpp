// A document is loaded, the operations of the lines below it are carried out, and the store is
// committed, written and read again. A line is an operation and its arguments:
//   set|COMPONENT|PROPERTY|VALUE|INSTANCE

#include "DataSets.h"
#include "FuzzTarget.h"
#include "store/DocumentText.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <json/reader.h>
#include <json/writer.h>
#include <map>
#include <sstream>
#include <sys/mman.h>
#include <vector>

namespace
{

constexpr char kEndOfDocument[] = "\n---\n";

using Arguments = std::vector<std::string>;

Arguments split(const std::string& line)
{
    Arguments texts;
    std::istringstream stream(line);
    for (std::string text; std::getline(stream, text, '|');)
        texts.push_back(text);
    texts.resize(6);
    return texts;
}

int number(const std::string& text) { return std::atoi(text.c_str()); }

int answered = 0; // by whatever answers a number

/// Reads a property in all its forms.
void get(IDataSets& store, const Arguments& a, const auto& instance)
{
    std::string text;
    bool truth = false;
    store.getIntParam("D", a[1], a[2], answered, instance);
    store.getTextParam("D", a[1], a[2], text, instance);
    store.getBoolParam("D", a[1], a[2], truth, instance);
    store.getNewIntParam("D", a[1], a[2], answered, instance);
    store.getNewTextParam("D", a[1], a[2], text, instance);
    store.getNewBoolParam("D", a[1], a[2], truth, instance);
    store.isChangedProperty("D", a[1], a[2], instance);
    store.isChangedInstance("D", a[1], instance);
    store.hasInstance("D", a[1], instance);
}

void set(IDataSets& store, const Arguments& a, const auto& instance)
{
    store.setIntParam("D", a[1], a[2], number(a[3]), instance);
    store.setBoolParam("D", a[1], a[2], a[3] == "true", instance);
    if (store.setTextParam("D", a[1], a[2], a[3], instance) == FC_OK)
        require(store.isChangedProperty("D", a[1], a[2], instance), "what was set is pending");
    get(store, a, instance);
}

void init(IDataSets& store, const Arguments& a, const auto& instance)
{
    store.initIntParam("D", a[1], a[2], number(a[3]), instance);
    store.initBoolParam("D", a[1], a[2], a[3] == "true", instance);
    store.initTextParam("D", a[1], a[2], a[3], instance);
    get(store, a, instance);
}

void list(IDataSets& store, const Arguments& a)
{
    std::vector<std::string> names;
    std::list<std::string> values;
    std::string texts[4];
    store.getProperties("D", a[1], names);
    store.getInstances("D", a[1], names);
    store.getInstancesByParameter("D", a[1], a[2], a[3], a[4]);
    store.getInstancesByParameter("D", a[1], a[2], a[3], number(a[4]));
    store.getInstancesByKey("D", a[1], a[3], a[4]);
    store.getComponentProperty("D", a[1], a[2], texts[0], texts[1], texts[2], values);
    store.getComponentPropertyDefault("D", a[1], a[2], texts[3]);
    store.getComponentSize("D", a[1], answered);
    store.findDataSetWithComponent(texts[0], a[1]);
}

void request(IDataSets& store, const Arguments& a)
{
    Json::Value document;
    if (!Json::Reader().parse(a[1], document))
        return;
    for (const auto operation : {&IDataSets::getParams, &IDataSets::setParams,
                                 &IDataSets::fetchPropertyNames, &IDataSets::fetchComponentKeys}) {
        Json::Value reply;
        const Fcodes code = (store.*operation)(document, reply);
        require(reply["fcode"].asUInt() == static_cast<unsigned>(code), "a reply holds its code");
    }
}

const std::map<std::string, void (*)(IDataSets& store, const Arguments& a)> kOperations = {
    {"set", [](auto& s, auto& a) { set(s, a, a[4]), set(s, a, number(a[4])); }},
    {"init", [](auto& s, auto& a) { init(s, a, a[4]), init(s, a, number(a[4])); }},
    {"list", list},
    {"request", request},
    {"add", [](auto& s, auto& a) { s.addInstance("D", a[1], a[2]); }},
    {"append", [](auto& s, auto& a) { s.appendInstance("D", a[1], answered); }},
    {"remove",
     [](auto& s, auto& a) {
         s.removeInstance("D", a[1], a[2]), s.removeInstance("D", a[1], number(a[2]));
     }},
    {"clear", [](auto& s, auto& a) { s.clearComponent("D", a[1]); }},
    {"load", [](auto& s, auto& a) { s.loadComponent("D", a[1], a[2]); }},
    {"delete", [](auto& s, auto& a) { s.deleteComponent("D", a[1]); }},
    {"touch",
     [](auto& s, auto& a) { a[1].empty() ? s.touchDataSet("D") : s.touchComponent("D", a[1]); }},
    {"untouch",
     [](auto& s, auto& a) {
         s.untouchProperty("D", a[1], a[2], a[3]);
         s.untouchProperty("D", a[1], a[2], number(a[3]));
         s.untouchComponent("D", a[1]);
     }},
    {"commit", [](auto& s, auto& a) { s.commitComponent("D", a[1]); }},
    {"rollback", [](auto& s, auto& a) { s.rollbackComponent("D", a[1]); }},
    {"update",
     [](auto& s, auto& a) {
         s.addDataSet("R");
         s.loadComponent("R", a[1], a[2]);
         s.updateDataSet("D", "R", a[3] == "1", a[4] == "1", a[5] == "1");
     }},
};

bool readsBack(const std::string& text, const Json::Value& document)
{
    Json::Value read;
    return Json::Reader().parse(text, read) && read == document;
}

/// As the library writes it, unless that would not be read back as it was.
void checkText(const std::string& text)
{
    Json::Value document;
    if (!Json::Reader().parse(text, document))
        return;
    const std::string ours = documentText(document);
    const std::string ever = (std::ostringstream() << document).str();
    require(ours == ever || (readsBack(ours, document) && !readsBack(ever, document)),
            "a document has the library's text", ever);
}

/// A file in memory cannot be replaced. It is written in place, which takes a fraction of the time.
const std::string& writtenFile()
{
    static const std::string path = "/proc/self/fd/" + std::to_string(memfd_create("written", 0));
    return path;
}

std::string written(IDataSets& store, const std::string& dataset)
{
    store.storeDataSet(dataset, writtenFile());
    std::ifstream file(writtenFile());
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string text = textOf(data, size);
    const std::size_t end = std::min(text.find(kEndOfDocument), text.size());
    std::ofstream("/tmp/D.json") << text.substr(0, end);
    DataSets store;
    if (store.loadDataSet("D", "/tmp/D.json") != FC_OK)
        return 0;
    checkText(text.substr(0, end));

    std::istringstream lines(text.substr(end));
    for (std::string line; std::getline(lines, line);) {
        const Arguments arguments = split(line);
        if (const auto found = kOperations.find(arguments[0]); found != kOperations.end())
            found->second(store, arguments);
    }
    store.commit();
    require(!store.isChanged(), "nothing is pending after a commit");

    const std::string document = written(store, "D");
    require(store.loadDataSet("Again", writtenFile()) == FC_OK, "what is written is read",
            document);
    require(written(store, "Again") == document, "what is read is written the same", document);
    return 0;
}
