#pragma once

// A store that only records what it is asked, as "operation(in, in, ...)". Every output is filled,
// so that a test sees that it was passed on. Operations stand in the order of IDataSets.

#include "IDataSets.h"

#include <json/value.h>
#include <json/writer.h>
#include <sstream>

class RecordingStore : public IDataSets
{
    using In = const std::string&;
    using Request = const Json::Value&;
    using Traits = std::vector<std::string>;

public:
    /// The last call, and the result of all calls.
    std::string mLast;
    Fcodes mResult = FC_UNSUPPORTED;

    // clang-format off
    Fcodes loadDataSet(In a) override { return record("loadDataSet", a); }
    Fcodes loadDataSet(In a, In b) override { return record("loadDataSet", a, b); }
    Fcodes storeDataSet(In a, In b) override { return record("storeDataSet", a, b); }
    Fcodes addDataSet(In a) override { return record("addDataSet", a); }
    Fcodes deleteDataSet(In a) override { return record("deleteDataSet", a); }
    Fcodes updateDataSet(In a, In b, bool c, bool d, bool e) override { return record("updateDataSet", a, b, c, d, e); }
    Fcodes findDataSetWithComponent(std::string& a, In b) override { return fill(a), record("findDataSetWithComponent", b); }
    Fcodes addComponent(In a, In b) override { return record("addComponent", a, b); }
    Fcodes deleteComponent(In a, In b) override { return record("deleteComponent", a, b); }
    Fcodes loadComponent(In a, In b, In c) override { return record("loadComponent", a, b, c); }
    Fcodes getComponentSize(In a, In b, int& c) override { return fill(c), record("getComponentSize", a, b); }
    Fcodes addInstance(In a, In b, In c) override { return record("addInstance", a, b, c); }
    Fcodes appendInstance(In a, In b, int& c) override { return fill(c), record("appendInstance", a, b); }
    Fcodes removeInstance(In a, In b, int c) override { return record("removeInstance", a, b, c); }
    Fcodes removeInstance(In a, In b, In c) override { return record("removeInstance", a, b, c); }
    Fcodes clearComponent(In a, In b) override { return record("clearComponent", a, b); }
    bool hasInstance(In a, In b, In c) override { return record("hasInstance", a, b, c) != FC_OK; }
    bool hasInstance(In a, In b, int c) override { return record("hasInstance", a, b, c) != FC_OK; }
    Fcodes getProperties(In a, In b, Traits& c) override { return fill(c), record("getProperties", a, b); }
    Fcodes getInstances(In a, In b, Traits& c) override { return fill(c), record("getInstances", a, b); }
    Traits getInstancesByParameter(In a, In b, In c, In d, In e) override { return record("getInstancesByParameter", a, b, c, d, e), Traits{"found"}; }
    Traits getInstancesByParameter(In a, In b, In c, In d, int e) override { return record("getInstancesByParameter", a, b, c, d, e), Traits{"found"}; }
    Traits getInstancesByKey(In a, In b, In c, In d) override { return record("getInstancesByKey", a, b, c, d), Traits{"found"}; }
    Fcodes getComponentProperty(In a, In b, In c, std::string& d, std::string& e, std::string& f, std::list<std::string>& g) override { return fill(d), fill(e), fill(f), fill(g), record("getComponentProperty", a, b, c); }
    Fcodes getComponentPropertyDefault(In a, In b, In c, std::string& d) override { return fill(d), record("getComponentPropertyDefault", a, b, c); }
    Fcodes getIntParam(In a, In b, In c, int& d, int e) override { return fill(d), record("getIntParam", a, b, c, e); }
    Fcodes getIntParam(In a, In b, In c, int& d, In e) override { return fill(d), record("getIntParam", a, b, c, e); }
    Fcodes getTextParam(In a, In b, In c, std::string& d, int e) override { return fill(d), record("getTextParam", a, b, c, e); }
    Fcodes getTextParam(In a, In b, In c, std::string& d, In e) override { return fill(d), record("getTextParam", a, b, c, e); }
    Fcodes getBoolParam(In a, In b, In c, bool& d, int e) override { return fill(d), record("getBoolParam", a, b, c, e); }
    Fcodes getBoolParam(In a, In b, In c, bool& d, In e) override { return fill(d), record("getBoolParam", a, b, c, e); }
    Fcodes getNewIntParam(In a, In b, In c, int& d, int e) override { return fill(d), record("getNewIntParam", a, b, c, e); }
    Fcodes getNewIntParam(In a, In b, In c, int& d, In e) override { return fill(d), record("getNewIntParam", a, b, c, e); }
    Fcodes getNewTextParam(In a, In b, In c, std::string& d, int e) override { return fill(d), record("getNewTextParam", a, b, c, e); }
    Fcodes getNewTextParam(In a, In b, In c, std::string& d, In e) override { return fill(d), record("getNewTextParam", a, b, c, e); }
    Fcodes getNewBoolParam(In a, In b, In c, bool& d, int e) override { return fill(d), record("getNewBoolParam", a, b, c, e); }
    Fcodes getNewBoolParam(In a, In b, In c, bool& d, In e) override { return fill(d), record("getNewBoolParam", a, b, c, e); }
    Fcodes setIntParam(In a, In b, In c, int d, int e) override { return record("setIntParam", a, b, c, d, e); }
    Fcodes setIntParam(In a, In b, In c, int d, In e) override { return record("setIntParam", a, b, c, d, e); }
    Fcodes setTextParam(In a, In b, In c, In d, int e) override { return record("setTextParam", a, b, c, d, e); }
    Fcodes setTextParam(In a, In b, In c, In d, In e) override { return record("setTextParam", a, b, c, d, e); }
    Fcodes setBoolParam(In a, In b, In c, bool d, int e) override { return record("setBoolParam", a, b, c, d, e); }
    Fcodes setBoolParam(In a, In b, In c, bool d, In e) override { return record("setBoolParam", a, b, c, d, e); }
    Fcodes initIntParam(In a, In b, In c, int d, int e) override { return record("initIntParam", a, b, c, d, e); }
    Fcodes initIntParam(In a, In b, In c, int d, In e) override { return record("initIntParam", a, b, c, d, e); }
    Fcodes initTextParam(In a, In b, In c, In d, int e) override { return record("initTextParam", a, b, c, d, e); }
    Fcodes initTextParam(In a, In b, In c, In d, In e) override { return record("initTextParam", a, b, c, d, e); }
    Fcodes initBoolParam(In a, In b, In c, bool d, int e) override { return record("initBoolParam", a, b, c, d, e); }
    Fcodes initBoolParam(In a, In b, In c, bool d, In e) override { return record("initBoolParam", a, b, c, d, e); }
    void touchDataSet(In a) override { record("touchDataSet", a); }
    void untouchDataSet(In a) override { record("untouchDataSet", a); }
    void touchComponent(In a, In b) override { record("touchComponent", a, b); }
    void untouchComponent(In a, In b) override { record("untouchComponent", a, b); }
    bool isChanged() override { return record("isChanged") != FC_OK; }
    bool isChangedDataSet(In a) override { return record("isChangedDataSet", a) != FC_OK; }
    bool isChangedComponent(In a, In b) override { return record("isChangedComponent", a, b) != FC_OK; }
    bool isChangedInstance(In a, In b, In c) override { return record("isChangedInstance", a, b, c) != FC_OK; }
    bool isChangedInstance(In a, In b, int c) override { return record("isChangedInstance", a, b, c) != FC_OK; }
    bool isChangedProperty(In a, In b, In c, In d) override { return record("isChangedProperty", a, b, c, d) != FC_OK; }
    bool isChangedProperty(In a, In b, In c, int d) override { return record("isChangedProperty", a, b, c, d) != FC_OK; }
    Fcodes setParams(Request a, Json::Value& b) override { return fill(b), record("setParams", a); }
    Fcodes getParams(Request a, Json::Value& b) override { return fill(b), record("getParams", a); }
    Fcodes fetchPropertyNames(Request a, Json::Value& b) override { return fill(b), record("fetchPropertyNames", a); }
    Fcodes fetchComponentKeys(Request a, Json::Value& b) override { return fill(b), record("fetchComponentKeys", a); }
    Fcodes commit() override { return record("commit"); }
    Fcodes commitComponent(In a, In b) override { return record("commitComponent", a, b); }
    Fcodes rollback() override { return record("rollback"); }
    Fcodes rollbackComponent(In a, In b) override { return record("rollbackComponent", a, b); }
    void untouchProperty(In a, In b, In c, In d) override { record("untouchProperty", a, b, c, d); }
    void untouchProperty(In a, In b, In c, int d) override { record("untouchProperty", a, b, c, d); }
    Fcodes onGetDataset(In a) override { return record("onGetDataset", a); }
    Fcodes onGetComponent(In a, In b) override { return record("onGetComponent", a, b); }
    Fcodes onGetComponentEntry(In a, In b, In c) override { return record("onGetComponentEntry", a, b, c); }
    Fcodes onGetComponentEntry(In a, In b, int c) override { return record("onGetComponentEntry", a, b, c); }
    Fcodes onGetComponentValue(In a, In b, In c, In d) override { return record("onGetComponentValue", a, b, c, d); }
    Fcodes onGetComponentValue(In a, In b, In c, int d) override { return record("onGetComponentValue", a, b, c, d); }
    // clang-format on

private:
    template <typename... Inputs>
    Fcodes record(const char* operation, const Inputs&... inputs)
    {
        std::ostringstream call;
        [[maybe_unused]] const char* separator = "";
        call << operation << '(';
        ((call << separator << inputs, separator = ", "), ...);
        call << ')';
        mLast = call.str();
        return mResult;
    }

    static void fill(int& value) { value = 7; }
    static void fill(bool& value) { value = true; }
    static void fill(std::string& value) { value = "seven"; }
    static void fill(Json::Value& value) { value = "seven"; }
    static void fill(Traits& value) { value = {"seven"}; }
    static void fill(std::list<std::string>& value) { value = {"seven"}; }
};
