#include "testkit/ScriptedUserInterface.h"

#include <algorithm>

#include <gtest/gtest.h>

ScriptedUserInterface::ScriptedUserInterface() { ZVUserInterface::install(this); }

ScriptedUserInterface::~ScriptedUserInterface() {
    if (ZVUserInterface::sharedIfInstalled() == this) ZVUserInterface::install(nullptr);
}

ZVAlertResponse ScriptedUserInterface::runModal(const ZVAlert& alert) {
    std::function<void(const ZVAlert&)> observer;
    {
        std::lock_guard<std::mutex> guard(_mutex);
        observer = _alertObserver;
    }
    if (observer) observer(alert);
    std::lock_guard<std::mutex> guard(_mutex);
    _alerts.push_back(alert);
    ZVAlertResponse response;
    if (_answers.empty()) {
        if (_requiresScriptedAnswers) ADD_FAILURE() << "an alert without a scripted answer: " << alert.messageText;
        return response;
    }
    Answer answer = _answers.front();
    _answers.pop_front();
    if (!answer.title) {
        response.buttonIndex = answer.index;
        return response;
    }
    const auto& buttons = alert.buttons;
    auto found = std::find(buttons.begin(), buttons.end(), *answer.title);
    if (found == buttons.end()) {
        ADD_FAILURE() << "The alert \"" << alert.messageText << "\" has no button \"" << *answer.title << "\"";
        return response;
    }
    response.buttonIndex = static_cast<int>(found - buttons.begin());
    return response;
}

std::optional<std::string> ScriptedUserInterface::runModalWithTextField(const ZVAlert& alert,
                                                                        const std::string& initialText, bool) {
    std::lock_guard<std::mutex> guard(_mutex);
    _textPrompts.push_back({alert, initialText});
    if (_textAnswers.empty()) {
        if (_requiresScriptedAnswers) ADD_FAILURE() << "a text prompt without a scripted answer: " << alert.messageText;
        return initialText;
    }
    auto answer = _textAnswers.front();
    _textAnswers.pop_front();
    return answer;
}

std::optional<std::size_t> ScriptedUserInterface::runModalWithChoice(const ZVAlert& alert,
                                                                     const std::vector<std::string>& choices,
                                                                     std::size_t preselected) {
    std::lock_guard<std::mutex> guard(_mutex);
    _choicePrompts.push_back({alert, choices, preselected});
    if (_choiceAnswers.empty()) {
        if (_requiresScriptedAnswers) ADD_FAILURE() << "a choice without a scripted answer: " << alert.messageText;
        return preselected;
    }
    const auto answer = _choiceAnswers.front();
    _choiceAnswers.pop_front();
    if (!answer) return std::nullopt;
    const auto found = std::find(choices.begin(), choices.end(), *answer);
    if (found == choices.end()) {
        ADD_FAILURE() << "The pop-up of \"" << alert.messageText << "\" has no choice \"" << *answer << "\"";
        return std::nullopt;
    }
    return static_cast<std::size_t>(found - choices.begin());
}

std::vector<std::string> ScriptedUserInterface::alertMessages() const {
    std::vector<std::string> messages;
    for (const auto& alert : alerts()) messages.push_back(alert.messageText);
    return messages;
}

void ScriptedUserInterface::clearRecords() {
    std::lock_guard<std::mutex> guard(_mutex);
    _alerts.clear();
    _textPrompts.clear();
    _choicePrompts.clear();
    _banners.clear();
    _openedURLs.clear();
    _beeps = 0;
}
