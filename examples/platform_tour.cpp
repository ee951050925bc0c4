// A short tour of the object library: builds a few objects and prints them.
#include "tessiva/object/Ob.h"

#include <cstdio>

int main() {
    ObRef<ObMutableDictionary> options = ObMutableDictionary::make();
    options->setObject_forKey(ObNumber::make(30), ObNumber::make(1001));
    options->setObject_forKey(ObNumber::makeBool(true), ObNumber::make(1000));
    options->setObject_forKey(
        ObDictionary::make({{ObString::make("EventPasscode"), ObDictionary::make()}}),
        ObNumber::make(1007));
    ObRef<ObArray> list = ObArray::make({ObString::make("EventPasscode"), ObNumber::make(2)});
    const unsigned char handle[] = {0xde, 0xad, 0xbe, 0xef};
    ObRef<ObError> error = ObError::make(
        ObString::make("org.example"), -6,
        ObDictionary::make({{ObLocalizedDescriptionKey, ObString::make("Not supported.")}}));
    std::printf("options: %s\n", options->description()->cString());
    std::printf("list:    %s\n", list->description()->cString());
    std::printf("handle:  %s\n", ObData::make(handle, sizeof handle)->description()->cString());
    std::printf("error:   %s\n", error->description()->cString());
    std::printf("format:  %s\n",
                ObFormat("%@ / %s / %d / %ld / %%", nullptr, "text", -7, 1L << 20)->cString());
    return 0;
}
