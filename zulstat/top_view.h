// What top shows and what its keys do, without a terminal, a clock or a Gateway.
#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "frame.h"
#include "top_columns.h"
#include "top_list.h"
#include "track.h"

namespace zulstat {

// One Gateway of the screen. The texts are shown ones.
struct TopGateway {
    std::string target;
    std::string protocol;
    Tracks tracks;
    std::string lost;   // why there is no connection; empty while there is one
    std::string state;  // what is to be said of it: the wait, the next attempt; empty when all is well
    bool sampled = false;
};

struct TopSettings {
    bool raw = false;
    bool named = false;  // whether statistics were asked for by name: then none is folded away
    bool unicode = true;
    double interval = 1;
    std::optional<double> speed = {};  // of a recording, its seconds in each second
};

class TopView;

// A row of the table of keys, from which what they do, the help, the hints and the manual come.
struct TopKey {
    std::string_view keys;  // as the help and the manual name them
    std::string_view help;
    std::string_view hint;     // in the last row of the screen; empty for none
    std::array<int, 6> codes;  // of screen.h; 0 for none
    void (TopView::*action)(int key, std::span<const TopGateway> gateways);
    bool ofRecordings = false;  // does nothing else, so that the help of others leaves it out
};

class TopView {
public:
    explicit TopView(TopSettings given);
    static std::span<const TopKey> keys();

    // A key of screen.h.
    void press(int key, std::span<const TopGateway> gateways);
    Frame draw(std::size_t rows, std::size_t columns, std::span<const TopGateway> gateways, double now,
               double wallTime);

    // What the keys have asked for.
    bool leaving = false;
    bool paused = false;
    double interval;
    std::optional<double> speed;  // of a recording
    double moved = 0;             // seconds, to another place of the recording
    bool stepped = false;         // one sample further
    // What the caller knows of a recording.
    bool atEnd = false;

private:
    struct Cursor {
        const Track* track = nullptr;  // compared only
        std::string group;             // of a heading, when there is no track
        std::size_t index = 0;
    };

    using Gateways = std::span<const TopGateway>;
    void leave(int, Gateways);
    void showHelp(int, Gateways);
    void move(int key, Gateways gateways);
    void open(int, Gateways gateways);
    void fold(int key, Gateways gateways);
    void foldAll(int, Gateways gateways);
    void showConstants(int, Gateways gateways);
    void sort(int, Gateways);
    void turn(int, Gateways);
    void filter(int, Gateways);
    void clearFilter(int, Gateways);
    void pause(int, Gateways);
    void pace(int key, Gateways);
    void exact(int, Gateways);
    void nextGateway(int, Gateways gateways);
    void step(int, Gateways);
    void seek(int key, Gateways);

    void type(int key);
    bool constantsShown(Gateways gateways) const;
    std::vector<TopLine> lines(Gateways gateways);
    void setFolded(const std::string& group, bool folded);
    void follow(std::span<const TopLine> shown);
    std::string pacing() const;
    std::size_t drawTitle(Frame& frame, Gateways gateways, double wallTime) const;
    void drawHelp(Frame& frame, std::size_t row) const;
    void drawFooter(Frame& frame, std::size_t shown, std::size_t room) const;

    TopSettings settings;
    TopOrder order;
    TopTable table;
    Cursor cursor;
    std::size_t first = 0;          // the line below the titles
    std::size_t page = 1;           // lines that fit
    std::optional<bool> constants;  // whether they are shown, once a key has said it
    bool pane = false;
    bool typing = false;
    bool help = false;
};

}  // namespace zulstat
