#include <QAction>
#include <QMenu>

#include "ShellTestEnvironment.h"
#include "core/ui/ZVMenu.h"
#include "ui_elements/ZVMenuRenderer.h"

namespace {

// Opening a menu without showing it: what Qt does right before the popup.
void aboutToOpen(QMenu& menu) { Q_EMIT menu.aboutToShow(); }

}  // namespace

TEST(ZVMenuRenderer, ItemsBecomeActionsWithTitleStateAndSeparators) {
    auto model = std::make_shared<ZVMenu>();
    int chosen = 0;
    std::string chosenTitle;
    model->addItem("Start Timer", "toggleTimer", [&](const ZVMenuItem& item) {
        ++chosen;
        chosenTitle = item.title;
    });
    model->addItem("Current Project: (none)").enabled = false;
    model->addSeparator();
    auto& checked = model->addItem("Website — 00:10:00", "selectProject:", [](const ZVMenuItem&) {});
    checked.state = ZVMenuItem::State::on;
    checked.toolTip = "Projects ➔ Website";
    model->addItem("Research & Development", "noop", [](const ZVMenuItem&) {});
    model->addItem("Without handler");
    QMenu menu;
    ZVMenuRenderer::fill(menu, model);
    const auto actions = menu.actions();
    ASSERT_EQ(actions.size(), 6);
    EXPECT_EQ(actions[0]->text(), QStringLiteral("Start Timer"));
    EXPECT_TRUE(actions[0]->isEnabled());
    EXPECT_FALSE(actions[0]->isChecked());
    EXPECT_FALSE(actions[1]->isEnabled());
    EXPECT_TRUE(actions[2]->isSeparator());
    EXPECT_TRUE(actions[3]->isChecked());
    EXPECT_EQ(actions[3]->toolTip(), QString::fromUtf8("Projects ➔ Website"));
    EXPECT_EQ(actions[4]->text(), QStringLiteral("Research && Development")) << "a lone & would be a mnemonic";
    EXPECT_FALSE(actions[5]->isEnabled()) << "an item without a handler is disabled";
    actions[0]->trigger();
    EXPECT_EQ(chosen, 1);
    EXPECT_EQ(chosenTitle, "Start Timer");
    actions[1]->trigger();
    EXPECT_EQ(chosen, 1) << "a disabled item ran its handler";
}

TEST(ZVMenuRenderer, SubmenusAreFilledWhenTheyOpenAndTriggerTheirItems) {
    auto model = std::make_shared<ZVMenu>();
    auto& branch = model->addItem("Website (2)");
    branch.submenu = std::make_shared<ZVMenu>();
    std::string selected;
    for (const char* name : {"Design", "Build"})
        branch.submenu->addItem(name, "selectProject:", [&](const ZVMenuItem& item) { selected = item.title; });
    auto& alternate = branch.submenu->addItem("Post time for 'Build'", "postTime", [&](const ZVMenuItem& item) {
        selected = item.title;
    });
    alternate.isAlternate = true;
    QMenu menu;
    ZVMenuRenderer::fill(menu, model);
    ASSERT_EQ(menu.actions().size(), 1);
    QMenu* submenu = menu.actions()[0]->menu();
    ASSERT_NE(submenu, nullptr);
    EXPECT_EQ(menu.actions()[0]->text(), QStringLiteral("Website (2)"));
    EXPECT_TRUE(submenu->actions().isEmpty()) << "submenus are built when they open";
    aboutToOpen(*submenu);
    ASSERT_EQ(submenu->actions().size(), 3);
    EXPECT_EQ(submenu->actions()[2]->text(), QStringLiteral("Post time for 'Build'"))
        << "the Option-key item is a visible entry of its own";
    submenu->actions()[1]->trigger();
    EXPECT_EQ(selected, "Build");
    aboutToOpen(*submenu);
    EXPECT_EQ(submenu->actions().size(), 3) << "a second opening must not add the items twice";
}

TEST(ZVMenuRenderer, MenuIsRebuiltAtEachOpening) {
    int builds = 0;
    QMenu menu;
    ZVMenuRenderer::rebuildOnOpening(menu, [&] {
        ++builds;
        auto model = std::make_shared<ZVMenu>();
        model->addItem(builds % 2 ? "Start" : "Stop", "toggleTimer", [](const ZVMenuItem&) {});
        return model;
    });
    aboutToOpen(menu);
    ASSERT_EQ(menu.actions().size(), 1);
    EXPECT_EQ(menu.actions()[0]->text(), QStringLiteral("Start"));
    aboutToOpen(menu);
    ASSERT_EQ(menu.actions().size(), 1);
    EXPECT_EQ(menu.actions()[0]->text(), QStringLiteral("Stop"));
    EXPECT_EQ(builds, 2);
}

// A leaf's time is drawn at half strength after its name; a title without
// that part keeps its full strength to the end, also with "&" in the name.
TEST(ZVMenuRenderer, TheTimePartOfALeafIsDrawnDimmed) {
    auto model = std::make_shared<ZVMenu>();
    auto& leaf = model->addItem("M&M — 00:10:00", "selectProject:", [](const ZVMenuItem&) {});
    leaf.secondaryTitleStart = std::string("M&M").size();
    model->addItem("M&M — 00:10:00", "selectProject:", [](const ZVMenuItem&) {});
    QMenu menu;
    ZVMenuRenderer::fill(menu, model);
    menu.popup(QPoint(10, 10));
    processEventsUntil([&] { return menu.isVisible(); });
    const QImage picture = menu.grab().toImage();
    const QColor background = menu.palette().color(QPalette::Window);
    // The strongest ink of the first and of the last third of the text.
    const auto inkOfThirds = [&](QAction* action) {
        const QRect row = menu.actionGeometry(action);
        std::vector<int> columns;
        for (int x = row.left(); x <= row.right(); ++x)
            for (int y = row.top(); y <= row.bottom(); ++y)
                if (std::abs(qGray(picture.pixel(x, y)) - qGray(background.rgb())) > 60) {
                    columns.push_back(x);
                    break;
                }
        const auto strongest = [&](std::size_t from, std::size_t to) {
            int ink = 0;
            for (std::size_t i = from; i < to; ++i)
                for (int y = row.top(); y <= row.bottom(); ++y)
                    ink = std::max(ink, std::abs(qGray(picture.pixel(columns[i], y)) - qGray(background.rgb())));
            return ink;
        };
        const std::size_t third = columns.size() / 3;
        return std::pair{strongest(0, third), strongest(columns.size() - third, columns.size())};
    };
    const auto [leafName, leafTime] = inkOfThirds(menu.actions()[0]);
    const auto [plainStart, plainEnd] = inkOfThirds(menu.actions()[1]);
    EXPECT_LT(leafTime, leafName * 3 / 4) << "the time is not dimmed";
    EXPECT_GT(leafName, plainStart * 9 / 10) << "the name is dimmed too";
    EXPECT_GT(plainEnd, plainStart * 9 / 10) << "a title without a time part was dimmed";
    menu.hide();
}
