// Files, PEM and PIN entry for the command-line tools.
#pragma once

#include <string>
#include <vector>

namespace vorel_tools {

using Bytes = std::vector<unsigned char>;

bool read_file(const std::string& path, Bytes& out);
bool write_file(const std::string& path, const Bytes& data);

// The DER inside the first PEM block whose label is one of labels; false when there is none.
// found receives the label of the first block seen, whatever it is.
bool pem_decode(const Bytes& text, const std::vector<std::string>& labels, Bytes& der, std::string& found);
// True when the bytes look like PEM rather than DER.
bool is_pem(const Bytes& data);
std::string pem_encode(const std::string& label, const Bytes& der);

// Reads a secret from the terminal without echo (a line of standard input when it is no
// terminal). False at end of input.
bool read_secret(const char* prompt, std::string& secret);

}  // namespace vorel_tools
