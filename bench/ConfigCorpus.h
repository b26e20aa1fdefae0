// Generated configuration content for the configuration benchmarks: one tree of blocks, scalars
// and arrays, written in the syntax of each parser measured so that every parser reads the same
// names, numbers and strings.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace ConfigCorpus
{
enum class Syntax
{
    KIV,
    LIBCONFIG,
    YAML,
    TOML,
    JSON
};

struct Node
{
    enum Kind
    {
        INT,
        FLOAT,
        STRING,
        INT_ARRAY,
        FLOAT_ARRAY,
        STRING_ARRAY,
        BLOCK
    };
    Kind kind;
    std::string name;
    // Decimal integers, float texts every syntax reads, or raw strings (escaped when written).
    std::vector<std::string> values;
    std::vector<Node> children;
};

// A root block whose Kiv text is at least `bytes` long, with blocks nested up to `depth` levels.
// Within a block every scalar and array comes before the first sub-block and every name is unique,
// which the syntaxes with tables and objects need.
Node Generate(uint32_t seed, size_t bytes, int depth);
std::string Write(const Node & root, Syntax syntax);
} // namespace ConfigCorpus
