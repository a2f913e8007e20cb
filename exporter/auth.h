// Users and their passwords.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

namespace exporter {

// Whether a password is the one of a bcrypt hash, by crypt(3); the comparison takes the same time wherever they differ.
bool passwordMatches(const std::string& password, const std::string& hash);

// Whether the text is a bcrypt hash, with a cost of 04 to 31.
bool isBcryptHash(std::string_view text);
// A hash of no password that anybody knows, with the highest cost of those of the users.
std::string nobodysHash(const std::map<std::string, std::string>& users);

// Checks passwords in a thread of its own, as that takes long on purpose. Results that were right are remembered.
// Members are called from one thread; none of them waits but the destructor, for one check.
class Authenticator {
public:
    enum class Answer { yes, no, later, busy };

    Authenticator();
    ~Authenticator();
    Authenticator(const Authenticator&) = delete;
    Authenticator& operator=(const Authenticator&) = delete;

    // Names and bcrypt hashes; none: everybody may ask.
    void setUsers(std::map<std::string, std::string> users);
    bool needed() const {
        return !users.empty();
    }
    // `later`: finished() has the id after descriptor() became readable, and the answer is then another one. An unknown
    // user takes as long as a wrong password of the user whose hash takes longest.
    Answer check(std::uint64_t id, const std::string& user, const std::string& password);
    int descriptor() const {
        return event;
    }
    std::vector<std::uint64_t> finished();
    // One that finished() told and nobody asks for any more.
    void forget(std::uint64_t id) {
        answers.erase(id);
    }

private:
    struct Check {
        std::uint64_t id;
        std::string user;
        std::string password;
        std::string hash;
        bool right;
    };
    // User, hash and password, as a digest under a key of this process.
    std::string digestOf(const Check& check) const;
    void work();

    std::map<std::string, std::string> users;
    std::string nobody;  // the hash for users that are not there
    std::string key;
    std::set<std::string> right;
    std::map<std::uint64_t, bool> answers;  // of ids that finished() has told
    int event;

    std::mutex mutex;  // guards what follows
    std::condition_variable wake;
    std::deque<Check> waiting;
    std::deque<Check> done;
    bool ending = false;

    std::thread thread;
};

}  // namespace exporter
