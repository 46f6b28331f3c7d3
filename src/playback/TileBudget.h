// TileBudget: the processor time the tiles may take together while the
// program angle plays, so that the program keeps its pictures whatever the
// footage. Priorities alone do not do it: a tile at the lowest priority
// still fills the other core's cache and memory bus while the program
// decodes, and a machine may give the lowest priority more than its due.
//
// Buckets refilled at `rate` cores (processor seconds per second of the
// clock) and drawn, after each picture, by the processor time the tile's
// thread took for it; a tile waits while its bucket is empty. Each angle
// has a bucket of an equal share, so a tile that asks first does not starve
// the others; what a bucket cannot hold (an angle that needs less, or is on
// program) goes to a common one any tile may draw from. The rate
// steers itself from the program angle: halved when the program runs short
// of pictures decoded ahead or comes late, grown back slowly while it keeps
// ahead, between a floor that keeps the tiles' key frames coming and a
// ceiling that leaves the program, the sound and the interface their core.
//
// Times are seconds of the player's time source, so the rule runs the same
// on virtual time. Any thread.
#pragma once

#include <mutex>
#include <vector>

namespace qv {

class TileBudget {
public:
    struct Rule {
        double ceiling = 1.5;     // cores
        double floor = 0.2;       // cores
        double depth = 0.25;      // seconds of the rate the bucket holds
        double cutEvery = 0.25;   // seconds between two cuts, so a cut can tell
        double regrow = 0.5;      // share of the ceiling regained per second
    };
    // The rule on a machine of `cores`: all of it but half a core at most,
    // a tenth of it at least.
    static Rule ruleFor(int cores);

    // `angles`: the angles that may be tiles, numbered from 0.
    TileBudget(Rule rule, int angles);

    // The owner, at each update while the program angle plays beside tiles:
    // whether the program is short of pictures or late.
    void steer(double now, bool programPressed);
    // Tile `angle`, before decoding a picture while playing: whether it may.
    bool open(double now, int angle);
    // Tile `angle`, after: the processor seconds its picture took.
    void charge(double now, int angle, double seconds);

    struct Figures {
        double rate = 0;     // cores, now
        double granted = 0;  // processor seconds put in the bucket so far
        double spent = 0;    // processor seconds the tiles took so far
    };
    Figures figures() const;

private:
    void fill(double now);  // lock held
    double& account(int angle);  // the angle's bucket, or the common one; lock held

    const Rule rule_;
    mutable std::mutex lock_;
    // -- Guarded by lock_.
    double rate_;
    std::vector<double> balances_;  // by angle
    double common_ = 0;
    double filledAt_ = 0;
    double steeredAt_ = 0;
    double cutAt_ = -1e300;
    Figures totals_;
};

}  // namespace qv
