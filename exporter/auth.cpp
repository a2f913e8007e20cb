#include "auth.h"

#include <crypt.h>
#include <gnutls/crypto.h>
#include <gnutls/gnutls.h>
#include <sys/eventfd.h>
#include <sys/random.h>
#include <unistd.h>

#include <csignal>
#include <cerrno>
#include <memory>
#include <stdexcept>
#include <system_error>

namespace exporter {

namespace {

constexpr std::size_t MOST_CHECKS = 64;  // that wait
constexpr std::size_t MOST_REMEMBERED = 1000;
constexpr std::size_t HASH_SIZE = 60;
constexpr std::size_t COST_PLACE = 4;  // of two digits
constexpr std::string_view NOBODY = "$2y$04$abcdefghijklmnopqrstuuJ3PGGpUFMVRCOqSNCbBLJnCmV2n3/S2";

}  // namespace

bool isBcryptHash(std::string_view text) {
    if (text.size() != HASH_SIZE || !text.starts_with("$2") || text[3] != '$' || text[6] != '$') {
        return false;
    }
    const std::string_view cost = text.substr(COST_PLACE, 2);
    return cost.find_first_not_of("0123456789") == std::string_view::npos && cost >= "04" && cost <= "31";
}

std::string nobodysHash(const std::map<std::string, std::string>& users) {
    std::string hash(NOBODY);
    for (const auto& [name, other] : users) {
        if (hash.compare(COST_PLACE, 2, other, COST_PLACE, 2) < 0) {
            hash.replace(COST_PLACE, 2, other, COST_PLACE, 2);
        }
    }
    return hash;
}

bool passwordMatches(const std::string& password, const std::string& hash) {
    const auto data = std::make_unique<crypt_data>();
    const char* const made = crypt_r(password.c_str(), hash.c_str(), data.get());
    if (made == nullptr || password.find('\0') != std::string::npos) {
        return false;
    }
    const std::string other(made);
    unsigned difference = other.size() == hash.size() ? 0 : 1;
    for (std::size_t index = 0; index < hash.size(); ++index) {
        const char c = index < other.size() ? other[index] : '\0';
        difference |= static_cast<unsigned char>(c ^ hash[index]);
    }
    return difference == 0;
}

Authenticator::Authenticator() : key(32, '\0'), event(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (event < 0 || getrandom(key.data(), key.size(), 0) != static_cast<ssize_t>(key.size())) {
        throw std::system_error(errno, std::generic_category(), "authentication");
    }
    thread = std::thread([this] { work(); });
}

Authenticator::~Authenticator() {
    {
        const std::lock_guard lock(mutex);
        ending = true;
    }
    wake.notify_one();
    thread.join();
    close(event);
}

void Authenticator::setUsers(std::map<std::string, std::string> given) {
    users = std::move(given);
    nobody = nobodysHash(users);
    right.clear();
}

std::string Authenticator::digestOf(const Check& check) const {
    std::string text;
    for (const std::string* part : {&check.user, &check.hash, &check.password}) {
        text += std::to_string(part->size()) + ":" + *part;
    }
    std::string digest(32, '\0');
    if (gnutls_hmac_fast(GNUTLS_MAC_SHA256, key.data(), key.size(), text.data(), text.size(), digest.data()) != 0) {
        throw std::runtime_error("no digest can be made");
    }
    return digest;
}

Authenticator::Answer Authenticator::check(std::uint64_t id, const std::string& user, const std::string& password) {
    if (const auto known = answers.find(id); known != answers.end()) {
        const bool answer = known->second;
        answers.erase(known);
        return answer ? Answer::yes : Answer::no;
    }
    const auto found = users.find(user);
    Check wanted{id, user, password, found == users.end() ? nobody : found->second, false};
    if (right.contains(digestOf(wanted))) {
        return Answer::yes;
    }
    {
        const std::lock_guard lock(mutex);
        if (waiting.size() >= MOST_CHECKS) {
            return Answer::busy;
        }
        waiting.push_back(std::move(wanted));
    }
    wake.notify_one();
    return Answer::later;
}

std::vector<std::uint64_t> Authenticator::finished() {
    std::uint64_t count = 0;
    [[maybe_unused]] const ssize_t size = read(event, &count, sizeof count);
    std::deque<Check> checks;
    {
        const std::lock_guard lock(mutex);
        checks.swap(done);
    }
    std::vector<std::uint64_t> ids;
    for (const Check& one : checks) {
        const auto user = users.find(one.user);
        const bool holds = one.right && user != users.end() && user->second == one.hash;
        if (holds) {
            if (right.size() >= MOST_REMEMBERED) {
                right.clear();
            }
            right.insert(digestOf(one));
        }
        answers[one.id] = holds;
        ids.push_back(one.id);
    }
    return ids;
}

void Authenticator::work() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, nullptr);
    std::unique_lock lock(mutex);
    for (;;) {
        wake.wait(lock, [&] { return ending || !waiting.empty(); });
        if (ending) {
            return;
        }
        Check check = std::move(waiting.front());
        waiting.pop_front();
        lock.unlock();
        check.right = passwordMatches(check.password, check.hash);
        lock.lock();
        done.push_back(std::move(check));
        const std::uint64_t one = 1;
        [[maybe_unused]] const ssize_t size = write(event, &one, sizeof one);
    }
}

}  // namespace exporter
