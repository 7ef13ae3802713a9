// By OpenSSL's libcrypto, which uses the processor's instructions.
#include <new>
#include <openssl/evp.h>

#include "base/sha256.h"

namespace tavrik::base {

struct Sha256::State {
    EVP_MD_CTX *context;
};

namespace {

// The algorithm is looked up once; the library releases it.
const EVP_MD *Algorithm() {
    static const EVP_MD *const algorithm = EVP_MD_fetch(nullptr, "SHA256", nullptr);
    return algorithm;
}

// What fails here is memory, or a configuration of the library without the algorithm.
void Require(int result) {
    if (result != 1)
        throw std::bad_alloc();
}

} // namespace

Sha256::Sha256() : state_(new State{EVP_MD_CTX_new()}) {
    Require(state_->context != nullptr ? EVP_DigestInit_ex2(state_->context, Algorithm(), nullptr) : 0);
}

Sha256::~Sha256() {
    EVP_MD_CTX_free(state_->context);
}

void Sha256::Update(std::span<const uint8_t> bytes) {
    Require(EVP_DigestUpdate(state_->context, bytes.data(), bytes.size()));
}

Sha256::Digest Sha256::Finish() {
    Digest digest;
    Require(EVP_DigestFinal_ex(state_->context, digest.data(), nullptr));
    return digest;
}

} // namespace tavrik::base
