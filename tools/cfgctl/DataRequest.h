#pragma once

// The bodies of data requests, and the values of their answers. No state; any thread.

#include <string>
#include <utility>
#include <vector>

/// A row of a component or table, with its properties in the order of the answer.
struct DataRow {
    std::string key;
    std::vector<std::pair<std::string, std::string>> properties;

    /// Null where it did not come.
    const std::string* find(const std::string& property) const;
};

/// What a request is about: a component of a dataset, or a table wherever it is.
struct DataPlace {
    std::string dataset; ///< "" for a table
    std::string component;
};

/// An item of a row; with its value in a SET.
std::string itemElement(const std::string& property);
std::string itemElement(const std::string& property, const std::string& value);
std::string rowElement(const std::string& key, const std::string& items = {});

/// `rows` is rows, or items for all rows, or nothing for everything. Texts in it are to be checked
/// before (requireValidText()).
std::string dataBody(const DataPlace& place, const std::string& rows);

/// The rows of a GET's answer. Names and values may hold anything, double quotes too, but what
/// looks like the next element of an answer. Throws Failure when the answer has another form.
std::vector<DataRow> parseRows(const std::string& body);
