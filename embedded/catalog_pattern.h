// The arguments of catalog calls: search patterns with "%", "_" and the escape "\", or plain names where the statement's
// SQL_ATTR_METADATA_ID says so. Names match without regard to case.
#pragma once

#include "handles.h"
#include "table_name.h"

#include <optional>
#include <string>
#include <string_view>

struct CatalogArguments {
    std::optional<std::string> catalog, schema, table, types;    // nothing: a null pointer was given
};

struct NamePattern {
    std::optional<std::string> catalog, schema, table;
    bool plain;
};

std::optional<std::string> optional_text(const SQLCHAR *text, SQLSMALLINT length);

NamePattern pattern_of(const Statement &statement, const CatalogArguments &arguments);

// A pattern that is not there matches everything, an empty one only the empty name.
bool matches_part(const std::optional<std::string> &pattern, std::string_view name, bool plain);

bool matches(const NamePattern &pattern, const TableName &name);

// `types` is a list separated by commas, each with or without single quotes; "%" wants every type.
bool wants_type(std::string_view types, std::string_view type);
