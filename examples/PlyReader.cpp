#include "examples/PlyReader.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <fstream>
#include <limits>
#include <sstream>
#include <vector>

#include "examples/ReadError.h"

namespace Demo {
namespace {

enum class Type { Int8, UInt8, Int16, UInt16, Int32, UInt32, Float32, Float64 };

bool parseType(const std::string& name, Type& type) {
    static const struct {
        const char* name;
        Type type;
    } names[] = {{"char", Type::Int8},      {"int8", Type::Int8},       {"uchar", Type::UInt8},
                 {"uint8", Type::UInt8},    {"short", Type::Int16},     {"int16", Type::Int16},
                 {"ushort", Type::UInt16},  {"uint16", Type::UInt16},   {"int", Type::Int32},
                 {"int32", Type::Int32},    {"uint", Type::UInt32},     {"uint32", Type::UInt32},
                 {"float", Type::Float32},  {"float32", Type::Float32}, {"double", Type::Float64},
                 {"float64", Type::Float64}};
    for (const auto& n : names) {
        if (name == n.name) {
            type = n.type;
            return true;
        }
    }
    return false;
}

std::size_t sizeOf(Type type) {
    switch (type) {
    case Type::Int8:
    case Type::UInt8:
        return 1;
    case Type::Int16:
    case Type::UInt16:
        return 2;
    case Type::Int32:
    case Type::UInt32:
    case Type::Float32:
        return 4;
    case Type::Float64:
        return 8;
    }
    return 0;
}

// Little-endian decoding; memcpy keeps unaligned reads defined.
double decode(const char* p, Type type) {
    switch (type) {
    case Type::Int8:
        return static_cast<double>(static_cast<std::int8_t>(*p));
    case Type::UInt8:
        return static_cast<double>(static_cast<std::uint8_t>(*p));
    case Type::Int16: {
        std::int16_t v;
        std::memcpy(&v, p, 2);
        return v;
    }
    case Type::UInt16: {
        std::uint16_t v;
        std::memcpy(&v, p, 2);
        return v;
    }
    case Type::Int32: {
        std::int32_t v;
        std::memcpy(&v, p, 4);
        return v;
    }
    case Type::UInt32: {
        std::uint32_t v;
        std::memcpy(&v, p, 4);
        return v;
    }
    case Type::Float32: {
        float v;
        std::memcpy(&v, p, 4);
        return v;
    }
    case Type::Float64: {
        double v;
        std::memcpy(&v, p, 8);
        return v;
    }
    }
    return 0.0;
}

struct Property {
    std::string name;
    Type type = Type::Float32;
    bool isList = false;
    Type countType = Type::UInt8;
};

struct Element {
    std::string name;
    std::uint64_t count = 0;
    std::vector<Property> properties;

    bool hasLists() const {
        return std::any_of(properties.begin(), properties.end(), [](const Property& p) { return p.isList; });
    }
    std::size_t fixedSize() const {
        std::size_t size = 0;
        for (const Property& p : properties) {
            size += sizeOf(p.type);
        }
        return size;
    }
};

// Buffered sequential input: large reads from the stream, small reads served from memory.
class ByteReader {
public:
    explicit ByteReader(std::ifstream& in) : in_(in), buffer_(BUFFER_SIZE) {}

    // Makes n bytes available at data(); false when the file ends first.
    bool ensure(std::size_t n) {
        if (end_ - pos_ >= n) {
            return true;
        }
        if (n > buffer_.size()) {
            buffer_.resize(n);
        }
        std::memmove(buffer_.data(), buffer_.data() + pos_, end_ - pos_);
        end_ -= pos_;
        pos_ = 0;
        while (end_ < n && in_) {
            in_.read(buffer_.data() + end_, static_cast<std::streamsize>(buffer_.size() - end_));
            end_ += static_cast<std::size_t>(in_.gcount());
        }
        return end_ >= n;
    }
    const char* data() const { return buffer_.data() + pos_; }
    void advance(std::size_t n) { pos_ += n; }
    bool skip(std::uint64_t n) {
        while (n > 0) {
            const std::size_t step = static_cast<std::size_t>(std::min<std::uint64_t>(n, buffer_.size()));
            if (!ensure(step)) {
                return false;
            }
            advance(step);
            n -= step;
        }
        return true;
    }
    int get() {
        if (pos_ == end_ && !ensure(1)) {
            return -1;
        }
        return static_cast<unsigned char>(buffer_[pos_++]);
    }

private:
    static constexpr std::size_t BUFFER_SIZE = 1 << 22;
    std::ifstream& in_;
    std::vector<char> buffer_;
    std::size_t pos_ = 0;
    std::size_t end_ = 0;
};

std::vector<std::string> splitWords(const std::string& line) {
    std::istringstream stream(line);
    std::vector<std::string> words;
    std::string word;
    while (stream >> word) {
        words.push_back(word);
    }
    return words;
}

bool parseCount(const std::string& text, std::uint64_t& value) {
    const char* end = text.data() + text.size();
    auto result = std::from_chars(text.data(), end, value);
    return result.ec == std::errc() && result.ptr == end;
}

std::uint8_t toColour(double value, Type type) {
    double v = value;
    if (type == Type::UInt16) {
        v = value / 257.0;
    } else if (type == Type::Float32 || type == Type::Float64) {
        v = value * 255.0;
    }
    if (!(v > 0.0)) {
        return 0;
    }
    return static_cast<std::uint8_t>(std::min(v + 0.5, 255.0));
}

class PlyFile {
public:
    PlyFile(const std::string& path, const PlyReader::Progress& progress)
        : path_(path), progress_(progress) {}

    PointCloud read() {
        in_.open(path_, std::ios::binary);
        if (!in_) {
            fail("cannot open the file");
        }
        in_.seekg(0, std::ios::end);
        fileSize_ = static_cast<std::uint64_t>(in_.tellg());
        in_.seekg(0);
        readHeader();
        dataStart_ = static_cast<std::uint64_t>(in_.tellg());
        findVertexLayout();

        ByteReader reader(in_);
        PointCloud cloud;
        if (ascii_) {
            readAscii(reader, cloud);
        } else {
            readBinary(reader, cloud);
        }
        if (cloud.empty()) {
            fail("the file holds no points with finite coordinates");
        }
        cloud.recentre();
        if (colour_[0] < 0) {
            cloud.colourByHeight();
        }
        if (progress_) {
            progress_(1.0);
        }
        return cloud;
    }

private:
    [[noreturn]] void fail(const std::string& problem) const { throw ReadError(path_, problem); }

    void readHeader() {
        std::string line;
        std::getline(in_, line);
        trim(line);
        if (!in_ || line != "ply") {
            fail("not a PLY file (the first line is not 'ply')");
        }
        bool haveFormat = false;
        int lineNumber = 1;
        while (true) {
            if (!std::getline(in_, line)) {
                fail("the header ends without an 'end_header' line");
            }
            ++lineNumber;
            // A header longer than this is not a header: a binary file without one would be read forever.
            if (lineNumber > 100000) {
                fail("the header has no end within 100000 lines");
            }
            trim(line);
            const std::vector<std::string> words = splitWords(line);
            if (words.empty() || words[0] == "comment" || words[0] == "obj_info") {
                continue;
            }
            const std::string where = "header line " + std::to_string(lineNumber) + " ('" + line + "'): ";
            if (words[0] == "end_header") {
                break;
            }
            if (words[0] == "format") {
                if (words.size() != 3) {
                    fail(where + "expected 'format <kind> 1.0'");
                }
                if (words[1] == "ascii") {
                    ascii_ = true;
                } else if (words[1] == "binary_little_endian") {
                    ascii_ = false;
                } else if (words[1] == "binary_big_endian") {
                    fail("binary_big_endian PLY files are not supported (use ASCII or binary_little_endian)");
                } else {
                    fail(where + "unknown format '" + words[1] + "'");
                }
                haveFormat = true;
            } else if (words[0] == "element") {
                Element element;
                if (words.size() != 3 || !parseCount(words[2], element.count)) {
                    fail(where + "expected 'element <name> <count>'");
                }
                element.name = words[1];
                elements_.push_back(element);
            } else if (words[0] == "property") {
                if (elements_.empty()) {
                    fail(where + "property before any element");
                }
                Property property;
                if (words.size() == 5 && words[1] == "list") {
                    property.isList = true;
                    if (!parseType(words[2], property.countType) || !parseType(words[3], property.type)) {
                        fail(where + "unknown list type");
                    }
                    if (property.countType == Type::Float32 || property.countType == Type::Float64) {
                        fail(where + "a list count must be an integer type");
                    }
                    property.name = words[4];
                } else if (words.size() == 3) {
                    if (!parseType(words[1], property.type)) {
                        fail(where + "unknown property type '" + words[1] + "'");
                    }
                    property.name = words[2];
                } else {
                    fail(where + "expected 'property <type> <name>' or 'property list <type> <type> <name>'");
                }
                elements_.back().properties.push_back(property);
            } else {
                fail(where + "unexpected keyword '" + words[0] + "'");
            }
        }
        if (!haveFormat) {
            fail("the header has no 'format' line");
        }
    }

    static void trim(std::string& line) {
        while (!line.empty() && (line.back() == '\r' || line.back() == ' ' || line.back() == '\t')) {
            line.pop_back();
        }
    }

    void findVertexLayout() {
        vertexElement_ = elements_.size();
        for (std::size_t i = 0; i < elements_.size(); ++i) {
            if (elements_[i].name == "vertex") {
                vertexElement_ = i;
                break;
            }
        }
        if (vertexElement_ == elements_.size()) {
            fail("the header declares no 'vertex' element");
        }
        const Element& vertex = elements_[vertexElement_];
        static const char* const axes[3] = {"x", "y", "z"};
        static const char* const colours[3][2] = {
            {"red", "diffuse_red"}, {"green", "diffuse_green"}, {"blue", "diffuse_blue"}};
        for (std::size_t i = 0; i < vertex.properties.size(); ++i) {
            const Property& p = vertex.properties[i];
            for (int a = 0; a < 3; ++a) {
                if (p.name == axes[a]) {
                    if (p.isList || (p.type != Type::Float32 && p.type != Type::Float64)) {
                        fail(std::string("vertex property '") + axes[a] +
                             "' must be float or double; other position types are not supported");
                    }
                    position_[a] = static_cast<int>(i);
                }
                if (!p.isList && (p.name == colours[a][0] || p.name == colours[a][1])) {
                    colour_[a] = static_cast<int>(i);
                }
            }
        }
        for (int a = 0; a < 3; ++a) {
            if (position_[a] < 0) {
                fail(std::string("the vertex element has no '") + axes[a] + "' property");
            }
        }
        if (colour_[0] < 0 || colour_[1] < 0 || colour_[2] < 0) {
            colour_[0] = colour_[1] = colour_[2] = -1;
        }
    }

    void reportProgress(std::uint64_t done, std::uint64_t total) {
        if (progress_ && (done & 0xFFFF) == 0) {
            progress_(static_cast<double>(done) / static_cast<double>(total));
        }
    }

    void addVertex(PointCloud& cloud, const double* values) {
        const double x = values[position_[0]];
        const double y = values[position_[1]];
        const double z = values[position_[2]];
        if (!std::isfinite(x) || !std::isfinite(y) || !std::isfinite(z)) {
            return;
        }
        const std::vector<Property>& props = elements_[vertexElement_].properties;
        if (colour_[0] >= 0) {
            cloud.addWorld(x, y, z, toColour(values[colour_[0]], props[colour_[0]].type),
                           toColour(values[colour_[1]], props[colour_[1]].type),
                           toColour(values[colour_[2]], props[colour_[2]].type));
        } else {
            cloud.addWorld(x, y, z, 255, 255, 255);
        }
    }

    std::string truncated(std::uint64_t done, std::uint64_t total) const {
        return "the file is truncated: it ends after " + std::to_string(done) + " of " +
               std::to_string(total) + " vertices";
    }

    void readBinary(ByteReader& reader, PointCloud& cloud) {
        for (std::size_t e = 0; e < vertexElement_; ++e) {
            skipBinaryElement(reader, elements_[e]);
        }
        const Element& vertex = elements_[vertexElement_];
        const std::uint64_t count = vertex.count;
        const bool fixed = !vertex.hasLists();
        const std::size_t stride = vertex.fixedSize();
        if (fixed && count > 0 && (fileSize_ - dataStart_) / stride < count) {
            fail("the file is truncated: the header declares " + std::to_string(count) + " vertices of " +
                 std::to_string(stride) + " bytes but only " +
                 std::to_string((fileSize_ - dataStart_) / stride) + " fit in the file");
        }
        cloud.reserve(
            static_cast<std::size_t>(std::min<std::uint64_t>(count, (fileSize_ - dataStart_) / stride)));
        std::vector<double> values(vertex.properties.size());
        for (std::uint64_t i = 0; i < count; ++i) {
            reportProgress(i, count);
            if (fixed) {
                if (!reader.ensure(stride)) {
                    fail(truncated(i, count));
                }
                const char* p = reader.data();
                for (std::size_t k = 0; k < vertex.properties.size(); ++k) {
                    values[k] = decode(p, vertex.properties[k].type);
                    p += sizeOf(vertex.properties[k].type);
                }
                reader.advance(stride);
            } else {
                for (std::size_t k = 0; k < vertex.properties.size(); ++k) {
                    if (!readBinaryProperty(reader, vertex.properties[k], values[k])) {
                        fail(truncated(i, count));
                    }
                }
            }
            addVertex(cloud, values.data());
        }
    }

    // Reads one property; a list is read past and yields 0.
    bool readBinaryProperty(ByteReader& reader, const Property& property, double& value) {
        if (!property.isList) {
            if (!reader.ensure(sizeOf(property.type))) {
                return false;
            }
            value = decode(reader.data(), property.type);
            reader.advance(sizeOf(property.type));
            return true;
        }
        if (!reader.ensure(sizeOf(property.countType))) {
            return false;
        }
        const double n = decode(reader.data(), property.countType);
        reader.advance(sizeOf(property.countType));
        if (n < 0) {
            fail("a list property '" + property.name + "' has a negative length");
        }
        value = 0.0;
        return reader.skip(static_cast<std::uint64_t>(n) * sizeOf(property.type));
    }

    void skipBinaryElement(ByteReader& reader, const Element& element) {
        if (!element.hasLists()) {
            const std::size_t size = element.fixedSize();
            if (size > 0 && (fileSize_ - dataStart_) / size < element.count) {
                fail("the file is truncated inside the '" + element.name + "' element");
            }
            if (!reader.skip(element.count * size)) {
                fail("the file is truncated inside the '" + element.name + "' element");
            }
            return;
        }
        double ignored;
        for (std::uint64_t i = 0; i < element.count; ++i) {
            for (const Property& p : element.properties) {
                if (!readBinaryProperty(reader, p, ignored)) {
                    fail("the file is truncated inside the '" + element.name + "' element");
                }
            }
        }
    }

    // ASCII bodies are read as a stream of words, so line breaks inside an element do no harm.
    bool nextWord(ByteReader& reader, std::string& word) {
        word.clear();
        int c = reader.get();
        while (c == ' ' || c == '\t' || c == '\n' || c == '\r') {
            c = reader.get();
        }
        while (c >= 0 && c != ' ' && c != '\t' && c != '\n' && c != '\r') {
            word.push_back(static_cast<char>(c));
            c = reader.get();
        }
        return !word.empty();
    }

    double asciiNumber(ByteReader& reader, std::string& word, const std::string& what) {
        if (!nextWord(reader, word)) {
            fail("the file is truncated: it ends inside " + what);
        }
        double value = 0.0;
        const char* begin = word.data();
        const char* end = begin + word.size();
        if (*begin == '+') {
            ++begin;
        }
        auto result = std::from_chars(begin, end, value);
        if (result.ec != std::errc() || result.ptr != end) {
            if (result.ec == std::errc::result_out_of_range) {
                return std::numeric_limits<double>::infinity();
            }
            fail("'" + word + "' in " + what + " is not a number");
        }
        return value;
    }

    void readAsciiInstance(ByteReader& reader, const Element& element, std::uint64_t index, double* values) {
        std::string word;
        const std::string what = element.name + " " + std::to_string(index);
        for (std::size_t k = 0; k < element.properties.size(); ++k) {
            const Property& p = element.properties[k];
            const double v = asciiNumber(reader, word, what);
            if (p.isList) {
                if (v < 0 || v != std::floor(v)) {
                    fail("list length '" + word + "' in " + what + " is not a count");
                }
                for (std::uint64_t n = static_cast<std::uint64_t>(v); n > 0; --n) {
                    if (!nextWord(reader, word)) {
                        fail("the file is truncated: it ends inside " + what);
                    }
                }
                values[k] = 0.0;
            } else {
                values[k] = v;
            }
        }
    }

    void readAscii(ByteReader& reader, PointCloud& cloud) {
        std::vector<double> values;
        for (std::size_t e = 0; e < vertexElement_; ++e) {
            values.resize(elements_[e].properties.size());
            for (std::uint64_t i = 0; i < elements_[e].count; ++i) {
                readAsciiInstance(reader, elements_[e], i, values.data());
            }
        }
        const Element& vertex = elements_[vertexElement_];
        // Every vertex takes at least two characters per value; that bounds what a header can make us
        // reserve.
        const std::uint64_t plausible = (fileSize_ - dataStart_) / (2 * vertex.properties.size() + 1);
        cloud.reserve(static_cast<std::size_t>(std::min(vertex.count, plausible)));
        values.resize(vertex.properties.size());
        for (std::uint64_t i = 0; i < vertex.count; ++i) {
            reportProgress(i, vertex.count);
            readAsciiInstance(reader, vertex, i, values.data());
            addVertex(cloud, values.data());
        }
    }

    std::string path_;
    const PlyReader::Progress& progress_;
    std::ifstream in_;
    std::uint64_t fileSize_ = 0;
    std::uint64_t dataStart_ = 0;
    bool ascii_ = false;
    std::vector<Element> elements_;
    std::size_t vertexElement_ = 0;
    int position_[3] = {-1, -1, -1};
    int colour_[3] = {-1, -1, -1};
};

} // namespace

PointCloud PlyReader::read(const std::string& path, const Progress& progress) {
    return PlyFile(path, progress).read();
}

} // namespace Demo
