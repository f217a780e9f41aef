#include "lights_screen.h"

#include <array>
#include <clocale>
#include <curses.h>
#include <poll.h>
#include <stdexcept>
#include <unistd.h>

#include "lights.h"
#include "screen_layout.h"
#include "signals.h"
#include "unit_poller.h"

namespace ctl {
namespace {

constexpr int REDRAW_MS = 100;
constexpr int ESCAPE = 27;

// Owns the terminal while the view is shown.
class Terminal {
public:
    Terminal() {
        if (isatty(STDIN_FILENO) == 0 || isatty(STDOUT_FILENO) == 0) {
            throw std::runtime_error("lights --watch needs a terminal; lights prints the lights once");
        }
        setlocale(LC_CTYPE, ""); // numbers keep their decimal point
        m_screen = newterm(nullptr, stdout, stdin);
        if (m_screen == nullptr) {
            throw std::runtime_error("lights --watch does not know the terminal; set TERM");
        }
        cbreak();
        noecho();
        curs_set(0);
        keypad(stdscr, TRUE);
        nodelay(stdscr, TRUE);
        set_escdelay(25);
        PrepareStyles();
    }
    ~Terminal() {
        endwin();
        delscreen(m_screen);
    }
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    ScreenSize Size() const { return {getmaxy(stdscr), getmaxx(stdscr), m_hasColours}; }

    void Draw(const Screen& screen) const {
        erase();
        int row = 0;
        for (const Line& line : screen.lines) {
            move(row++, 0);
            for (const TextSpan& span : line) {
                attrset(static_cast<int>(m_styles[static_cast<size_t>(span.style)]));
                addstr(span.text.c_str());
            }
        }
        refresh();
    }

private:
    void PrepareStyles() {
        m_styles = {A_NORMAL, A_BOLD, A_DIM, A_REVERSE, A_REVERSE | A_BOLD, A_NORMAL, A_NORMAL, A_NORMAL};
        m_hasColours = AllowsColours() && has_colors() && start_color() == OK;
        if (m_hasColours) {
            use_default_colors();
            constexpr short BACKGROUNDS[] = {COLOR_RED, COLOR_YELLOW, COLOR_GREEN};
            for (short i = 0; i < 3; i++) {
                init_pair(static_cast<short>(i + 1), COLOR_BLACK, BACKGROUNDS[i]);
                m_styles[static_cast<size_t>(Style::red) + static_cast<size_t>(i)] =
                    COLOR_PAIR(static_cast<unsigned>(i + 1));
            }
        }
    }

    SCREEN* m_screen;
    bool m_hasColours = false;
    std::array<chtype, STYLES> m_styles{}; // index: Style
};

// Returns the row to scroll to after a key.
int Scroll(int key, const Screen& screen) {
    const int page = screen.page > 1 ? screen.page : 1;
    switch (key) {
    case KEY_UP:
        return screen.scroll - 1;
    case KEY_DOWN:
        return screen.scroll + 1;
    case KEY_PPAGE:
        return screen.scroll - page;
    case KEY_NPAGE:
        return screen.scroll + page;
    case KEY_HOME:
        return 0;
    case KEY_END:
        return INT16_MAX;
    default:
        return screen.scroll;
    }
}

// Waits for a key, for a line of the daemon or for the next redraw. Returns false if the terminal is closed.
bool Wait(int daemon) {
    pollfd sources[] = {{STDIN_FILENO, POLLIN, 0}, {daemon, POLLIN, 0}};
    poll(sources, 2, REDRAW_MS);
    return (sources[0].revents & (POLLHUP | POLLERR | POLLNVAL)) == 0;
}

} // namespace

void ShowLightsScreen(const std::string& path) {
    UnitPoller poller(path);
    CatchSignals();
    const Terminal terminal;
    int scroll = 0;
    int key = ERR;
    do {
        poller.Poll();
        Screen screen = LayOut(poller.View(), terminal.Size(), scroll);
        terminal.Draw(screen);
        if (!Wait(poller.Descriptor())) {
            return;
        }
        while ((key = getch()) != ERR && key != 'q' && key != ESCAPE) {
            screen.scroll = Scroll(key, screen);
        }
        scroll = screen.scroll;
    } while (key == ERR && !WasSignalled());
}

} // namespace ctl
