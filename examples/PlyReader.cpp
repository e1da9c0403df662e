#include "examples/PlyReader.h"

#include <algorithm>
#include <cctype>
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

bool hostIsBigEndian() {
    const std::uint16_t one = 1;
    unsigned char first;
    std::memcpy(&first, &one, 1);
    return first == 0;
}

template <typename T> double as(const char* bytes) {
    T v;
    std::memcpy(&v, bytes, sizeof(T));
    return static_cast<double>(v);
}

// memcpy keeps unaligned reads defined; swap turns the file's byte order into the machine's.
double decode(const char* p, Type type, bool swap) {
    char bytes[8];
    const std::size_t n = sizeOf(type);
    for (std::size_t i = 0; i < n; ++i) {
        bytes[i] = p[swap ? n - 1 - i : i];
    }
    switch (type) {
    case Type::Int8:
        return as<std::int8_t>(bytes);
    case Type::UInt8:
        return as<std::uint8_t>(bytes);
    case Type::Int16:
        return as<std::int16_t>(bytes);
    case Type::UInt16:
        return as<std::uint16_t>(bytes);
    case Type::Int32:
        return as<std::int32_t>(bytes);
    case Type::UInt32:
        return as<std::uint32_t>(bytes);
    case Type::Float32:
        return as<float>(bytes);
    case Type::Float64:
        return as<double>(bytes);
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
    // The fewest bytes one instance can take: in ASCII a character and a separator a value, in binary
    // every list empty.
    std::size_t minimumSize(bool ascii) const {
        std::size_t size = 0;
        for (const Property& p : properties) {
            size += ascii ? 2 : sizeOf(p.isList ? p.countType : p.type);
        }
        return size;
    }
};

// Buffered sequential input: large reads from the stream, small reads served from memory. Progress is the
// share of the file behind the read position, reported at each refill.
class ByteReader {
public:
    ByteReader(std::ifstream& in, std::uint64_t start, std::uint64_t fileSize,
               const ScanLoad::Progress& progress)
        : in_(in), buffer_(BUFFER_SIZE), start_(start), fileSize_(fileSize), progress_(progress) {}

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
            const std::size_t got = static_cast<std::size_t>(in_.gcount());
            end_ += got;
            filled_ += got;
        }
        if (progress_ && fileSize_ > 0) {
            progress_(static_cast<double>(position()) / static_cast<double>(fileSize_));
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
    std::uint64_t position() const { return start_ + filled_ - (end_ - pos_); }
    std::uint64_t remaining() const { return fileSize_ > position() ? fileSize_ - position() : 0; }

private:
    static constexpr std::size_t BUFFER_SIZE = 1 << 22;
    std::ifstream& in_;
    std::vector<char> buffer_;
    std::size_t pos_ = 0;
    std::size_t end_ = 0;
    std::uint64_t start_;
    std::uint64_t filled_ = 0;
    std::uint64_t fileSize_;
    const ScanLoad::Progress& progress_;
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
        return static_cast<std::uint8_t>(static_cast<std::uint16_t>(value) >> 8);
    }
    if (type == Type::Float32 || type == Type::Float64) {
        v = value * 255.0 + 0.5;
    }
    if (!(v > 0.0)) {
        return 0;
    }
    return static_cast<std::uint8_t>(std::min(v, 255.0));
}

// What a header comment says about the up axis: "Y up", "y-up", "Y_UP", "y is up", "up y", "up_axis: +Y",
// "UpAxis=Y" and the same for z. Words are compared in lower case with every other character a separator.
ScanLoad::Up upAxisIn(const std::string& text) {
    std::vector<std::string> words(1);
    for (const char c : text) {
        if (std::isalnum(static_cast<unsigned char>(c))) {
            words.back().push_back(static_cast<char>(std::tolower(static_cast<unsigned char>(c))));
        } else if (!words.back().empty()) {
            words.emplace_back();
        }
    }
    auto word = [&words](std::size_t i) { return i < words.size() ? words[i] : std::string(); };
    auto axis = [&word](std::size_t i) {
        return word(i) == "y" ? ScanLoad::Up::Y : word(i) == "z" ? ScanLoad::Up::Z : ScanLoad::Up::Detect;
    };
    for (std::size_t i = 0; i < words.size(); ++i) {
        const std::string& w = words[i];
        ScanLoad::Up found = ScanLoad::Up::Detect;
        if (word(i + 1) == "up" || (word(i + 1) == "is" && word(i + 2) == "up")) {
            found = axis(i);
        } else if (w == "up") {
            const std::string next = word(i + 1);
            found = axis(next == "axis" || next == "direction" || next == "vector" ? i + 2 : i + 1);
        } else if (w == "upaxis" || w == "updirection" || w == "upvector") {
            found = axis(i + 1);
        }
        if (found != ScanLoad::Up::Detect) {
            return found;
        }
    }
    return ScanLoad::Up::Detect;
}

class PlyFile {
public:
    PlyFile(const std::string& path, ScanLoad& load) : path_(path), load_(load) {}

    PointCloud read() {
        in_.open(path_, std::ios::binary);
        if (!in_) {
            fail("cannot open the file");
        }
        in_.seekg(0, std::ios::end);
        fileSize_ = static_cast<std::uint64_t>(in_.tellg());
        in_.seekg(0);
        readHeader();
        findVertexLayout();

        in_.clear();
        in_.seekg(static_cast<std::streamoff>(dataStart_));
        ByteReader reader(in_, dataStart_, fileSize_, load_.progress);
        for (std::size_t e = 0; e < vertexElement_; ++e) {
            skipElement(reader, elements_[e]);
        }
        PointCloud cloud;
        readVertices(reader, cloud);
        load_.finish(path_, cloud, colour_[0] >= 0, fileUp_, fileUpWhy_);
        return cloud;
    }

private:
    [[noreturn]] void fail(const std::string& problem) const { throw ReadError(path_, problem); }

    // Lines of a header are short; a long one is binary data, and reading on would take in the whole file.
    bool readLine(std::string& line, int lineNumber) {
        constexpr std::size_t LIMIT = 1 << 16;
        line.clear();
        for (int c = in_.get(); c != std::char_traits<char>::eof(); c = in_.get()) {
            ++dataStart_;
            if (c == '\n') {
                return true;
            }
            if (line.size() == LIMIT) {
                fail("header line " + std::to_string(lineNumber) + " is longer than " +
                     std::to_string(LIMIT) + " characters; the header has no proper end");
            }
            line.push_back(static_cast<char>(c));
        }
        return !line.empty();
    }

    void readHeader() {
        std::string line;
        readLine(line, 1);
        trim(line);
        if (line != "ply") {
            fail("not a PLY file (the first line is not 'ply')");
        }
        bool haveFormat = false;
        int lineNumber = 1;
        while (true) {
            ++lineNumber;
            if (!readLine(line, lineNumber)) {
                fail("the header ends without an 'end_header' line");
            }
            // A header longer than this is not a header: a binary file without one would be read forever.
            if (lineNumber > 100000) {
                fail("the header has no end within 100000 lines");
            }
            trim(line);
            const std::vector<std::string> words = splitWords(line);
            if (words.empty()) {
                continue;
            }
            if (words[0] == "comment" || words[0] == "obj_info") {
                const ScanLoad::Up up = upAxisIn(line.substr(words[0].size()));
                if (up != ScanLoad::Up::Detect && fileUp_ == ScanLoad::Up::Detect) {
                    fileUp_ = up;
                    fileUpWhy_ = "the header says '" + line + "'";
                }
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
                } else if (words[1] == "binary_little_endian" || words[1] == "binary_big_endian") {
                    ascii_ = false;
                    swap_ = (words[1] == "binary_big_endian") != hostIsBigEndian();
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
        line_ = lineNumber + 1;
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

    // How many instances of the element the rest of the file could hold at most.
    std::uint64_t capacity(const Element& element, const ByteReader& reader) const {
        const std::size_t size = element.minimumSize(ascii_);
        // The last ASCII value of a file may go without a separator.
        return size == 0 ? std::numeric_limits<std::uint64_t>::max() : (reader.remaining() + ascii_) / size;
    }

    std::string instance(const Element& element, std::uint64_t index) const {
        return element.name + " " + std::to_string(index);
    }

    // Elements before the vertices are read past, which needs every list length of them in a binary file
    // and every word of them in an ASCII one.
    void skipElement(ByteReader& reader, const Element& element) {
        // Nothing is stored for an element without properties, however many the header declares.
        if (element.properties.empty()) {
            return;
        }
        if (element.count > capacity(element, reader)) {
            fail("the header declares " + ScanLoad::count(element.count, "'" + element.name + "' element") +
                 " before the vertices, more than the rest of the file can hold");
        }
        if (!ascii_ && !element.hasLists()) {
            if (!reader.skip(element.count * element.fixedSize())) {
                fail("the file is truncated inside the '" + element.name + "' element");
            }
            return;
        }
        std::vector<double> values(element.properties.size());
        for (std::uint64_t i = 0; i < element.count; ++i) {
            if (!readInstance(reader, element, i, values.data())) {
                fail("the file is truncated: it ends inside " + instance(element, i) +
                     ", before the vertices");
            }
        }
    }

    void readVertices(ByteReader& reader, PointCloud& cloud) {
        const Element& vertex = elements_[vertexElement_];
        const std::uint64_t fitting = capacity(vertex, reader);
        cloud.reserve(static_cast<std::size_t>(std::min(vertex.count, fitting)));
        std::vector<double> values(vertex.properties.size());
        const std::vector<Property>& props = vertex.properties;
        std::uint64_t read = 0;
        for (; read < vertex.count && read < fitting; ++read) {
            if (!readInstance(reader, vertex, read, values.data())) {
                break;
            }
            const double x = values[position_[0]] * load_.scale;
            const double y = values[position_[1]] * load_.scale;
            const double z = values[position_[2]] * load_.scale;
            if (colour_[0] >= 0) {
                cloud.addWorld(x, y, z, toColour(values[colour_[0]], props[colour_[0]].type),
                               toColour(values[colour_[1]], props[colour_[1]].type),
                               toColour(values[colour_[2]], props[colour_[2]].type));
            } else {
                cloud.addWorld(x, y, z, 255, 255, 255);
            }
        }
        load_.acceptTruncated(path_, vertex.count, read, "vertex", "vertices");
    }

    // Reads one instance; false when the file ends first. Lists are read past and yield 0.
    bool readInstance(ByteReader& reader, const Element& element, std::uint64_t index, double* values) {
        for (std::size_t k = 0; k < element.properties.size(); ++k) {
            const Property& p = element.properties[k];
            values[k] = 0.0;
            if (ascii_) {
                double v;
                if (!asciiNumber(reader, v, element, index)) {
                    return false;
                }
                if (!p.isList) {
                    values[k] = v;
                    continue;
                }
                const std::uint64_t n = asciiListLength(v, reader, element, index);
                for (std::uint64_t item = 0; item < n; ++item) {
                    if (!nextWord(reader)) {
                        return false;
                    }
                }
                continue;
            }
            const std::size_t size = sizeOf(p.isList ? p.countType : p.type);
            if (!reader.ensure(size)) {
                return false;
            }
            const double v = decode(reader.data(), p.isList ? p.countType : p.type, swap_);
            reader.advance(size);
            if (!p.isList) {
                values[k] = v;
                continue;
            }
            if (v < 0) {
                fail("list length " + std::to_string(static_cast<long long>(v)) + " in " +
                     instance(element, index) + " is negative");
            }
            // Count types are at most 32 bits wide, so the product cannot overflow.
            const std::uint64_t bytes = static_cast<std::uint64_t>(v) * sizeOf(p.type);
            if (bytes > reader.remaining() || !reader.skip(bytes)) {
                return false;
            }
        }
        return true;
    }

    // ASCII bodies are read as a stream of words, so line breaks inside an element do no harm.
    bool nextWord(ByteReader& reader) {
        // No number is this long; a longer word is binary data or damage, and is not collected further.
        constexpr std::size_t LIMIT = 1024;
        word_.clear();
        int c = reader.get();
        while (c == ' ' || c == '\t' || c == '\n' || c == '\r') {
            line_ += c == '\n';
            c = reader.get();
        }
        wordLine_ = line_;
        while (c >= 0 && c != ' ' && c != '\t' && c != '\n' && c != '\r') {
            if (word_.size() == LIMIT) {
                fail("line " + std::to_string(wordLine_) + ": a word of more than " + std::to_string(LIMIT) +
                     " characters where a number belongs");
            }
            word_.push_back(static_cast<char>(c));
            c = reader.get();
        }
        line_ += c == '\n';
        return !word_.empty();
    }

    std::string at() const { return "line " + std::to_string(wordLine_) + ": "; }

    bool asciiNumber(ByteReader& reader, double& value, const Element& element, std::uint64_t index) {
        if (!nextWord(reader)) {
            return false;
        }
        const char* begin = word_.data();
        const char* end = begin + word_.size();
        if (*begin == '+') {
            ++begin;
        }
        auto result = std::from_chars(begin, end, value);
        if (result.ec == std::errc::result_out_of_range && result.ptr == end) {
            value = std::numeric_limits<double>::infinity();
        } else if (result.ec != std::errc() || result.ptr != end) {
            fail(at() + "'" + word_ + "' in " + instance(element, index) + " is not a number");
        }
        return true;
    }

    std::uint64_t asciiListLength(double v, const ByteReader& reader, const Element& element,
                                  std::uint64_t index) {
        if (!std::isfinite(v) || v < 0 || v != std::floor(v)) {
            fail(at() + "list length '" + word_ + "' in " + instance(element, index) + " is not a count");
        }
        // Each item takes a character and a separator.
        if (v > static_cast<double>(reader.remaining() / 2 + 1)) {
            fail(at() + "list length '" + word_ + "' in " + instance(element, index) +
                 " is more than the rest of the file can hold");
        }
        return static_cast<std::uint64_t>(v);
    }

    const std::string& path_;
    ScanLoad& load_;
    std::ifstream in_;
    std::uint64_t fileSize_ = 0;
    std::uint64_t dataStart_ = 0;
    bool ascii_ = false;
    bool swap_ = false;
    ScanLoad::Up fileUp_ = ScanLoad::Up::Detect;
    std::string fileUpWhy_;
    std::vector<Element> elements_;
    std::size_t vertexElement_ = 0;
    int position_[3] = {-1, -1, -1};
    int colour_[3] = {-1, -1, -1};
    std::string word_;
    std::uint64_t line_ = 0;
    std::uint64_t wordLine_ = 0;
};

} // namespace

PointCloud PlyReader::read(const std::string& path, ScanLoad& load) {
    return PlyFile(path, load).read();
}

PointCloud PlyReader::read(const std::string& path) {
    ScanLoad load;
    return read(path, load);
}

} // namespace Demo
