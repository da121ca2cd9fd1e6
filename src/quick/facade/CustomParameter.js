// Typed custom parameters for VelmoraScreen, as the C++ builder makes them:
//     customParameter: function () {
//         return [CustomParameter.string("plan", "gold"), CustomParameter.integer("age", 42)]
//     }
// A value of the wrong type throws a TypeError, where the C++ builder would not compile.
// (A JavaScript resource rather than a QML singleton: QML reserves the name "double". Not a
// library, so that it runs in the importing document's context, which sees IAMSupport.)

function make(type, key, value) {
    return IAMSupport.customParameter(type, key, value)
}

function string(key, value) { return make("string", key, value) }
function integer(key, value) { return make("integer", key, value) }
function double(key, value) { return make("double", key, value) }
function boolean(key, value) { return make("boolean", key, value) }
function stringArray(key, value) { return make("stringArray", key, value) }
function integerArray(key, value) { return make("integerArray", key, value) }
function doubleArray(key, value) { return make("doubleArray", key, value) }
function booleanArray(key, value) { return make("booleanArray", key, value) }
