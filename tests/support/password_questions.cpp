#include "tests/support/password_questions.h"

#include "src/openssl_owners.h"

#include <openssl/ui.h>

#include <utility>

namespace {

std::string givenAnswer;
int questions = 0;

int answerQuestion(UI *ui, UI_STRING *question)
{
    if (UI_get_string_type(question) != UIT_PROMPT)
        return 1;
    ++questions;
    return UI_set_result(ui, question, givenAnswer.c_str()) == 0 ? 1 : 0;
}

UI_METHOD *answeringMethod()
{
    static const Owner<UI_METHOD, UI_destroy_method> method(UI_create_method("answers of a test"));
    UI_method_set_reader(method.get(), answerQuestion);
    return method.get();
}

} // namespace

PasswordQuestions::PasswordQuestions(std::string answer)
{
    givenAnswer = std::move(answer);
    questions = 0;
    UI_set_default_method(answeringMethod());
}

PasswordQuestions::~PasswordQuestions()
{
    UI_set_default_method(UI_OpenSSL());
}

int PasswordQuestions::count() const
{
    return questions;
}
