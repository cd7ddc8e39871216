#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <string_view>

class Console;

/**
 * One line at the bottom of a terminal that shows how much of a task is done. The bar only grows, whatever it is told,
 * and fits the terminal's width. Where it is not shown, nothing is written at all. Its line is left, with what it last
 * showed, when it is destroyed. The bar of a console may be used by any thread.
 */
class Progress
{
public:
    struct Look
    {
        bool isShown = false;
        bool isColored = false;
        std::function<unsigned()> columns;              ///< how many characters a line takes now
        std::function<void(std::string_view)> writing;  ///< where it goes
    };

    explicit Progress(Look look) : m_look(std::move(look)) {}
    /** The bar of a console, on standard error; its messages make the bar give way while it exists. */
    explicit Progress(Console& console);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /** What is being done. */
    void begin(std::string_view step);
    /** So many thousandths of all are done; less than before, and more than 1000, change nothing. */
    void reach(unsigned thousandths);
    /** Both at once. */
    void advance(std::string_view step, unsigned thousandths);
    unsigned reached() const { return m_reached; }

    /** Takes the bar from the line, so that something else can be written there. */
    void hide();
    /** Shows it again after hide(). */
    void show();

private:
    std::unique_lock<std::recursive_mutex> turn() const;
    void draw();
    std::string line() const;

    Look m_look;
    Console* m_console = nullptr;
    std::string m_step;
    std::string m_drawn;  // what stands on the line
    unsigned m_reached = 0;
    bool m_begun = false;
};
