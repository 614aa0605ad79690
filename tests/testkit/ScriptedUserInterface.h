#pragma once

#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "core/ui/ZVUserInterface.h"

/// A user interface that answers alerts from a script and records what was
/// shown. An alert is answered by the title of the next scripted button (or
/// its index); without a script the first button is pressed. Text prompts
/// answer with the next scripted text, nothing for "Cancel", or the given
/// initial text when nothing is scripted. Installs itself while it lives.
class ScriptedUserInterface : public ZVUserInterface {
public:
    struct TextPrompt {
        ZVAlert alert;
        std::string initialText;
    };
    struct ChoicePrompt {
        ZVAlert alert;
        std::vector<std::string> choices;
        std::size_t preselected = 0;
    };

    ScriptedUserInterface();
    ~ScriptedUserInterface() override;
    ScriptedUserInterface(const ScriptedUserInterface&) = delete;
    ScriptedUserInterface& operator=(const ScriptedUserInterface&) = delete;

    ZVAlertResponse runModal(const ZVAlert& alert) override;
    std::optional<std::string> runModalWithTextField(const ZVAlert& alert,
                                                     const std::string& initialText,
                                                     bool secure) override;
    /// Answers with the next scripted choice, or the preselected one.
    std::optional<std::size_t> runModalWithChoice(const ZVAlert& alert, const std::vector<std::string>& choices,
                                                  std::size_t preselected) override;
    /// Recorded with the modal alerts; it uses no scripted answer.
    void showAlert(const ZVAlert& alert) override {
        locked([&] { _alerts.push_back(alert); });
    }
    void beep() override {
        locked([&] { ++_beeps; });
    }
    void showBanner(const std::string& title, const std::string& text) override {
        locked([&] { _banners.emplace_back(title, text); });
    }
    bool openURL(const std::string& url) override {
        locked([&] { _openedURLs.push_back(url); });
        return true;
    }
    void activateApplication() override {}

    /// From now on an alert or a text prompt without a scripted answer fails
    /// the test instead of taking the first button or the initial text.
    void requireScriptedAnswers() { _requiresScriptedAnswers = true; }
    /// The next alert is answered with the button of that title; an alert
    /// without such a button fails the test.
    void answerWith(const std::string& buttonTitle) {
        locked([&] { _answers.push_back({buttonTitle, 0}); });
    }
    void answerWithIndex(int buttonIndex) {
        locked([&] { _answers.push_back({std::nullopt, buttonIndex}); });
    }
    /// The next text prompt gives this text; nothing means "Cancel".
    void answerTextPromptWith(std::optional<std::string> text) {
        locked([&] { _textAnswers.push_back(std::move(text)); });
    }
    /// The next pop-up alert gives the choice of that title; nothing means "Cancel".
    void answerChoiceWith(std::optional<std::string> title) {
        locked([&] { _choiceAnswers.push_back(std::move(title)); });
    }
    /// Runs while each alert is up, before it is answered (what the user or
    /// a timer might do meanwhile).
    void setAlertObserver(std::function<void(const ZVAlert&)> observer) {
        locked([&] { _alertObserver = std::move(observer); });
    }

    std::vector<ZVAlert> alerts() const {
        return locked([&] { return _alerts; });
    }
    std::vector<std::string> alertMessages() const;
    std::vector<TextPrompt> textPrompts() const {
        return locked([&] { return _textPrompts; });
    }
    std::vector<ChoicePrompt> choicePrompts() const {
        return locked([&] { return _choicePrompts; });
    }
    std::vector<std::pair<std::string, std::string>> banners() const {
        return locked([&] { return _banners; });
    }
    int beepCount() const {
        return locked([&] { return _beeps; });
    }
    /// The URLs handed to openURL, oldest first.
    std::vector<std::string> openedURLs() const {
        return locked([&] { return _openedURLs; });
    }
    /// Scripted answers that no alert has used yet.
    size_t unusedAnswerCount() const {
        return locked([&] { return _answers.size(); });
    }
    void clearRecords();
    void discardUnusedAnswers() {
        locked([&] {
            _answers.clear();
            _textAnswers.clear();
            _choiceAnswers.clear();
        });
    }

private:
    struct Answer {
        std::optional<std::string> title;
        int index = 0;
    };
    template <class Block>
    auto locked(Block block) const -> decltype(block()) {
        std::lock_guard<std::mutex> guard(_mutex);
        return block();
    }

    mutable std::mutex _mutex;
    std::function<void(const ZVAlert&)> _alertObserver;
    std::deque<Answer> _answers;
    std::deque<std::optional<std::string>> _textAnswers;
    std::vector<ZVAlert> _alerts;
    std::vector<TextPrompt> _textPrompts;
    std::deque<std::optional<std::string>> _choiceAnswers;
    std::vector<ChoicePrompt> _choicePrompts;
    std::vector<std::pair<std::string, std::string>> _banners;
    std::vector<std::string> _openedURLs;
    bool _requiresScriptedAnswers = false;
    int _beeps = 0;
};
